# SPDX-License-Identifier: Apache-2.0
# Manual page and shell completions, written by the command itself so that they say what its help says.

# tqtortho_help_pages(TARGET): makes them whenever TARGET is linked, and installs them.
function(tqtortho_help_pages target)
  if(CMAKE_CROSSCOMPILING)
    message(STATUS "no manual page: the command built here does not run here")
    return()
  endif()
  string(TIMESTAMP date "%Y-%m-%d" UTC)  # of SOURCE_DATE_EPOCH where that is set
  set(pages ${CMAKE_CURRENT_BINARY_DIR}/pages)
  file(MAKE_DIRECTORY ${pages})
  set(command $<TARGET_FILE:${target}> help-pages)
  add_custom_command(TARGET ${target} POST_BUILD VERBATIM
    COMMAND ${command} man --date ${date} --out ${pages}/tqtortho.1
    COMMAND ${command} bash --out ${pages}/tqtortho
    COMMAND ${command} zsh --out ${pages}/_tqtortho
    COMMAND ${command} fish --out ${pages}/tqtortho.fish)
  install(FILES ${pages}/tqtortho.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES ${pages}/tqtortho DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES ${pages}/_tqtortho DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
  install(FILES ${pages}/tqtortho.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
endfunction()
