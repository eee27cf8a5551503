# ptplib_test(DIR dir LINK library... [SOURCES source...] [PROGRAMS program...])
# Builds all tests in the directory into one program, <directory name>_test. SOURCES: additional
# sources. PROGRAMS: those that the tests run, from PTPLIB_BIN_DIR. Data is in PTPLIB_SOURCE_DIR.
function(ptplib_test)
   cmake_parse_arguments(PARSE_ARGV 0 arg "" "DIR" "LINK;SOURCES;PROGRAMS")
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
   target_compile_definitions(${name} PRIVATE PTPLIB_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
   if(arg_PROGRAMS)
      target_compile_definitions(${name} PRIVATE
         PTPLIB_BIN_DIR="${CMAKE_RUNTIME_OUTPUT_DIRECTORY}")
      add_dependencies(${name} ${arg_PROGRAMS})
   endif()
   # The tested code is compiled as it is shipped. The tests themselves need not be fast, but should
   # compile quickly.
   target_compile_options(${name} PRIVATE $<$<CONFIG:Release>:-O0>)
   ptplib_compiled_together(${name})
   if(PTPLIB_UNITY)
      # A name of one test may hide that of another.
      target_compile_options(${name} PRIVATE -Wno-shadow)
   endif()
   ptplib_precompiled(${name} OF_PROGRAM HEADERS <gmock/gmock.h> <gtest/gtest.h>
      PACKAGES GTest::gmock)
   add_test(NAME ${name} COMMAND ${name})
   set_tests_properties(${name} PROPERTIES TIMEOUT 900)
endfunction()
