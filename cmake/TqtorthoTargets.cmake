# SPDX-License-Identifier: Apache-2.0
# Settings that every target shares, and the rooms of the house.

find_program(TQTORTHO_CCACHE ccache)
if(TQTORTHO_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${TQTORTHO_CCACHE})
endif()

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# Results are fixed byte for byte: no fused multiply-add, no fast maths.
add_compile_options(-Wall -Wextra -Werror -ffp-contract=off)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  # GCC 12 takes its own inlined std::string concatenation for overlapping copies (GCC bug 105329).
  add_compile_options(-Wno-restrict)
endif()
if(TQTORTHO_SANITIZE)
  add_compile_options(-fsanitize=${TQTORTHO_SANITIZE} -fno-omit-frame-pointer -g1)
  add_link_options(-fsanitize=${TQTORTHO_SANITIZE})
  if(TQTORTHO_SANITIZE MATCHES undefined)
    add_compile_options(-fno-sanitize-recover=all)
  endif()
endif()

# tqtortho_room(NAME DEPENDS ...): the static library of one folder of src/, tests left out.
function(tqtortho_room name)
  cmake_parse_arguments(ROOM "" "" "PUBLIC;PRIVATE" ${ARGN})
  set(dir ${PROJECT_SOURCE_DIR}/src/${name})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${dir}/*.cpp)
  list(FILTER sources EXCLUDE REGEX "_test\\.cpp$")
  if(sources)
    add_library(tqt_${name} STATIC ${sources})
    target_include_directories(tqt_${name} PUBLIC
      ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/src/platform)
    target_link_libraries(tqt_${name} PUBLIC ${ROOM_PUBLIC} PRIVATE ${ROOM_PRIVATE})
    set_target_properties(tqt_${name} PROPERTIES UNITY_BUILD ${TQTORTHO_UNITY} UNITY_BUILD_BATCH_SIZE 12)
  else()
    add_library(tqt_${name} INTERFACE)
    target_include_directories(tqt_${name} INTERFACE
      ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/src/platform)
    target_link_libraries(tqt_${name} INTERFACE ${ROOM_PUBLIC})
  endif()
endfunction()

# What every test program has. Under sanitizers the tests themselves are compiled without optimisation and
# without the fuzzers' counters, which takes a third of the time; what they test is not. Twins that march
# millions of steps would then take minutes, so a target may ask to be optimised.
function(tqtortho_test_program name)
  cmake_parse_arguments(TEST "OPTIMISED" "" "" ${ARGN})
  target_link_libraries(${name} PRIVATE tqt_run tqt_testing GTest::gmock GTest::gtest_main)
  if(TQTORTHO_SANITIZE)
    target_sources(${name} PRIVATE ${PROJECT_SOURCE_DIR}/apps/tqtortho/sanitizer_options.cpp)
  endif()
  if(TQTORTHO_SANITIZE AND NOT TEST_OPTIMISED)
    target_compile_options(${name} PRIVATE -O0)
  endif()
  if(TQTORTHO_SANITIZE MATCHES fuzzer)
    target_compile_options(${name} PRIVATE -fno-sanitize=fuzzer-no-link)
  endif()
endfunction()

# One test program per room, from the foo_test.cpp files that stand beside their foo.cpp.
function(tqtortho_room_tests)
  include(GoogleTest)
  foreach(name core platform stage occlusion camera visibility rectify pipeline mosaic update survey walls
               score importers check prepare town report run)
    file(GLOB_RECURSE tests CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/${name}/*_test.cpp)
    if(tests)
      add_executable(${name}_test ${tests})
      # Tests may stand on rooms above their own: whole jobs, sample towns.
      if(name STREQUAL "occlusion")
        tqtortho_test_program(${name}_test OPTIMISED)
      else()
        tqtortho_test_program(${name}_test)
      endif()
      if(name MATCHES "^(platform|run)$")  # their tests look at files through the library behind them
        target_link_libraries(${name}_test PRIVATE GDAL::GDAL)
      endif()
      gtest_discover_tests(${name}_test TEST_PREFIX ${name}/ DISCOVERY_TIMEOUT 60
                           PROPERTIES LABELS unit
                           ENVIRONMENT TQTORTHO_SHARED_DATA=${PROJECT_SOURCE_DIR}/../shared/data)
    endif()
  endforeach()
endfunction()
