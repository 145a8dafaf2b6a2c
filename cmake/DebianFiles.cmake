# SPDX-License-Identifier: Apache-2.0
# Run by cpack on the files it has gathered: what Debian wants in another form than an installation by hand.
set(share ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/share)
set(doc ${share}/doc/tqtortho)

# The changelog in Debian's form, from the one that people read.
file(READ ${CPACK_TQTORTHO_SOURCE_DIR}/CHANGELOG.md text)
string(REPLACE ";" "@SEMICOLON@" text "${text}")  # which would end a list's item
string(REGEX REPLACE "^.*\n## ${CPACK_PACKAGE_VERSION}[^\n]*\n" "" text "${text}")
string(REGEX REPLACE "\n## .*" "" text "${text}")
string(REGEX MATCHALL "\n- [^\n]+(\n  [^\n]+)*" entries "${text}")
if(NOT entries)
  message(FATAL_ERROR "CHANGELOG.md says nothing about version ${CPACK_PACKAGE_VERSION}")
endif()
set(log "tqtortho (${CPACK_PACKAGE_VERSION}) bookworm; urgency=medium\n\n")
foreach(entry IN LISTS entries)
  string(REGEX REPLACE "^\n- " "" entry "${entry}")
  string(REPLACE "\n  " " " entry "${entry}")
  # Lines of at most 80 columns.
  string(REPLACE " " ";" words "${entry}")
  set(line "  *")
  foreach(word IN LISTS words)
    string(LENGTH "${line} ${word}" width)
    if(width GREATER 78)
      string(APPEND log "${line}\n")
      set(line "   ")
    endif()
    string(APPEND line " ${word}")
  endforeach()
  string(APPEND log "${line}\n")
endforeach()
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
string(REPLACE "@SEMICOLON@" ";" log "${log}")
string(APPEND log "\n -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
file(WRITE ${doc}/changelog "${log}")

file(GLOB pages ${share}/man/man1/*.1)
execute_process(COMMAND gzip -9 -n -f ${doc}/changelog ${pages} COMMAND_ERROR_IS_FATAL ANY)

file(COPY_FILE ${CPACK_TQTORTHO_SOURCE_DIR}/packaging/lintian-overrides ${doc}/overrides)
file(MAKE_DIRECTORY ${share}/lintian/overrides)
file(RENAME ${doc}/overrides ${share}/lintian/overrides/tqtortho)
