# The compile options of every translation unit of this project.

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
   set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")

find_program(PTPLIB_CCACHE ccache)
if(PTPLIB_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
   # With precompiled headers, the cache works only if it may assume that their macros are unused.
   set(CMAKE_CXX_COMPILER_LAUNCHER "${CMAKE_COMMAND}" -E env
      CCACHE_SLOPPINESS=pch_defines,time_macros "${PTPLIB_CCACHE}")
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
   # g++ 12 warns about overlapping copies inside std::string that cannot happen (GCC bug 105651).
   add_compile_options(-Wno-restrict)
endif()
if(PTPLIB_WERROR)
   add_compile_options(-Werror)
endif()

# Calls inside a shared object do not use the indirection that only a preloaded replacement would
# need, and inline functions are not in the symbol table: faster code, and less to relocate at load.
add_compile_options(-fno-semantic-interposition -fvisibility-inlines-hidden -fno-plt)

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
   # A symbol that g++ makes unique in the process keeps its library loaded after dlclose().
   add_compile_options(-fno-gnu-unique)
endif()

# Generated code and programs use includes relative to the root of the tree: "Kiv/Entity.h".
include_directories("${CMAKE_CURRENT_SOURCE_DIR}")

# Linkers that do not know the option warn about it and go on. The loader needs glibc 2.36.
include(CheckLinkerFlag)
check_linker_flag(CXX LINKER:--fatal-warnings,-z,pack-relative-relocs PTPLIB_PACKS_RELOCATIONS)

if(PTPLIB_SANITIZE)
   add_compile_options(-fsanitize=${PTPLIB_SANITIZE} -fno-sanitize-recover=all
                       -fno-omit-frame-pointer)
   add_link_options(-fsanitize=${PTPLIB_SANITIZE})
endif()
if(PTPLIB_FUZZ)
   # Coverage counters everywhere, so that the fuzzer also sees the code of the libraries.
   add_compile_options(-fsanitize=fuzzer-no-link)
   add_link_options(-fsanitize=fuzzer-no-link)
endif()

if(PTPLIB_LTO)
   include(CheckIPOSupported)
   check_ipo_supported()
   set(CMAKE_INTERPROCEDURAL_OPTIMIZATION ON)
endif()
