# SPDX-License-Identifier: Apache-2.0
# What is installed beside the programs, and the Debian package that "cpack -G DEB" makes of all of it.

# The tree below share/doc/tqtortho is that of the sources, so that links between the documents hold.
install(FILES README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES packaging/copyright DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR}
  FILES_MATCHING PATTERN "*.md" PATTERN "*.png" PATTERN "*.jpg")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR "tqtortho")
set(TQTORTHO_PACKAGER "tqtortho maintainers <maintainers@tqtortho.example>" CACHE STRING
  "Name and address that the Debian package gives as its maintainer")
set(CPACK_PACKAGE_CONTACT "${TQTORTHO_PACKAGER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
  GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/DebianFiles.cmake)
set(CPACK_TQTORTHO_SOURCE_DIR ${PROJECT_SOURCE_DIR})

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# cpack would write the shlibs, but not the trigger.
set(control ${PROJECT_BINARY_DIR}/debian)
file(WRITE ${control}/triggers "activate-noawait ldconfig\n")
file(WRITE ${control}/shlibs
  "libtqtortho ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR} tqtortho (>= ${PROJECT_VERSION})\n")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${control}/triggers ${control}/shlibs)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS qgis)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"tqtortho puts every photo of a survey onto its surface model, finds the
ground that each photo cannot see, takes every cell from a photo that sees
it and writes one seamless mosaic: roofs where they stand, no facades, no
double images beside buildings.
.
It reads surveys of other photogrammetry tools as they lie on disk, or
camera and photo lists. The package holds the command, the library with
its headers and a CMake package, and the documents.")
include(CPack)
