# ptplib_test(DIR dir LINK library... [SOURCES source...])
# Builds all tests in the directory into one program, <directory name>_test. SOURCES: additional
# sources.
function(ptplib_test)
   cmake_parse_arguments(PARSE_ARGV 0 arg "" "DIR" "LINK;SOURCES")
   if(NOT PTPLIB_TESTS)
      return()
   endif()
   ptplib_tests(sources ${arg_DIR})
   if(NOT sources)
      return()
   endif()
   find_package(GTest REQUIRED)
   cmake_path(GET arg_DIR FILENAME base)
   set(name ${base}_test)
   add_executable(${name} ${sources} ${arg_SOURCES})
   ptplib_link(${name} PRIVATE ${arg_LINK} GTest::gmock GTest::gtest_main)
   ptplib_test_environment(${name})
   # The tested code is compiled as it is shipped. The tests themselves need not be fast, but should
   # compile quickly.
   target_compile_options(${name} PRIVATE $<$<CONFIG:Release>:-O0>)
   ptplib_precompiled(${name} OF_PROGRAM HEADERS <gmock/gmock.h> <gtest/gtest.h>
      PACKAGES GTest::gmock)
   add_test(NAME ${name} COMMAND ${name})
   set_tests_properties(${name} PROPERTIES TIMEOUT 900)
endfunction()

# The directories that a test may need: PTPLIB_SOURCE_DIR for data, PTPLIB_BIN_DIR for programs.
function(ptplib_test_environment name)
   target_compile_definitions(${name} PRIVATE
      PTPLIB_SOURCE_DIR="${PROJECT_SOURCE_DIR}"
      PTPLIB_BIN_DIR="${CMAKE_RUNTIME_OUTPUT_DIRECTORY}")
   foreach(program IN ITEMS kivc ptpstate ptpports demoAgent)
      if(TARGET ${program})
         add_dependencies(${name} ${program})
      endif()
   endforeach()
endfunction()
