# SPDX-License-Identifier: Apache-2.0
# The built viewer of report pages as a source file of the report: src/report/viewer/report_viewer.{js,css} become
# arrays of bytes. As a module, adds the source to the target; as a script (cmake -P), writes it.
if(CMAKE_SCRIPT_MODE_FILE)
  set(text "// SPDX-License-Identifier: Apache-2.0\n#include \"report/viewer/report_viewer.h\"\n\n")
  string(APPEND text "namespace tqtortho::host {\nnamespace {\n")
  foreach(name script style)
    file(READ ${${name}} hex HEX)
    string(REGEX REPLACE "(..)" "0x\\1," bytes "${hex}")
    string(APPEND text "constexpr unsigned char k_${name}[] = {${bytes}0};\n")
  endforeach()
  string(APPEND text "}  // namespace\n")
  foreach(pair Script:script Style:style)
    string(REPLACE ":" ";" pair ${pair})
    list(GET pair 0 title)
    list(GET pair 1 name)
    string(APPEND text "std::string_view ReportViewer${title}() {\n  return {reinterpret_cast<const char*>"
      "(k_${name}), sizeof(k_${name}) - 1};\n}\n")
  endforeach()
  string(APPEND text "}  // namespace tqtortho::host\n")
  file(WRITE ${output} "${text}")
else()
  function(tqtortho_embed_report_viewer target)
    set(dir ${PROJECT_SOURCE_DIR}/src/report/viewer)
    set(output ${PROJECT_BINARY_DIR}/generated/report_viewer.cpp)
    set(script ${PROJECT_SOURCE_DIR}/cmake/EmbedReportViewer.cmake)
    add_custom_command(OUTPUT ${output}
      COMMAND ${CMAKE_COMMAND} -Dscript=${dir}/report_viewer.js -Dstyle=${dir}/report_viewer.css
        -Doutput=${output} -P ${script}
      DEPENDS ${dir}/report_viewer.js ${dir}/report_viewer.css ${script}
      COMMENT "Embedding the report viewer")
    target_sources(${target} PRIVATE ${output})
  endfunction()
endif()
