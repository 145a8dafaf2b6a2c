# SPDX-License-Identifier: Apache-2.0
# Target "docs": the documents and the API reference as web pages, in BUILD/docs/html/index.html.
find_program(TQTORTHO_DOXYGEN doxygen)
if(TQTORTHO_DOXYGEN)
  configure_file(${PROJECT_SOURCE_DIR}/docs/Doxyfile.in ${PROJECT_BINARY_DIR}/Doxyfile @ONLY)
  add_custom_target(docs COMMAND ${TQTORTHO_DOXYGEN} ${PROJECT_BINARY_DIR}/Doxyfile VERBATIM)
endif()
