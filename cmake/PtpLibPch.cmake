# Precompiled headers: most of what a compiler reads repeatedly is the standard library and the
# packages, not this tree. Only these are precompiled, so that an edit of this tree does not
# recompile them, and two checkouts produce the same bytes for the compiler cache.
#
# A source must still include what it uses. Builds without PTPLIB_PCH, such as the `tsan` preset,
# and the target header_check fail if one does not.

# For the same reason, the sources of a target are compiled a dozen at a time: most of what they
# read and instantiate is the same. The names in their unnamed namespaces must therefore differ. To
# compile one source at a time, as is faster while one is edited, configure with -DPTPLIB_UNITY=OFF.

option(PTPLIB_UNITY "Compile several sources of a target at once" ON)
option(PTPLIB_PCH "Precompile the headers of the standard library and of packages" ON)

set(PTPLIB_PCH_STANDARD <algorithm> <array> <bit> <charconv> <chrono> <compare> <concepts> <cstdint>
   <cstring> <functional> <limits> <map> <memory> <optional> <set> <sstream> <string> <string_view>
   <type_traits> <unordered_map> <utility> <vector>)

if(PTPLIB_PCH)
   if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
      # So that the cache hashes the precompiled header as one file rather than all of its text.
      add_compile_options(-fpch-preprocess)
   elseif(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
      # A timestamp would make the precompiled header different each time.
      add_compile_options("SHELL:-Xclang -fno-pch-timestamp")
   endif()
endif()

# ptplib_precompiled(target [OF_PROGRAM] [HEADERS header...] [PACKAGES library...])
# Precompiles the standard headers and those of packages for a target. Targets with the same
# arguments share one precompiled header. OF_PROGRAM: the target is an executable, whose code is
# position-independent in a different way. Call it after all compile options of the target have been
# set.
function(ptplib_precompiled target)
   cmake_parse_arguments(PARSE_ARGV 1 arg "OF_PROGRAM" "" "HEADERS;PACKAGES")
   if(NOT PTPLIB_PCH)
      return()
   endif()
   get_target_property(options ${target} COMPILE_OPTIONS)
   string(SHA256 hash "${arg_HEADERS};${options};${arg_OF_PROGRAM}")
   string(SUBSTRING "${hash}" 0 8 hash)
   set(pch pch_${hash})
   if(NOT TARGET ${pch})
      set(source "${CMAKE_BINARY_DIR}/${pch}.cpp")
      file(CONFIGURE OUTPUT "${source}" CONTENT "// Its precompiled header is used by others.\n")
      add_library(${pch} OBJECT EXCLUDE_FROM_ALL "${source}")
      if(options)
         target_compile_options(${pch} PRIVATE ${options})
      endif()
      target_link_libraries(${pch} PRIVATE ${arg_PACKAGES})
      if(arg_OF_PROGRAM)
         set_target_properties(${pch} PROPERTIES POSITION_INDEPENDENT_CODE OFF)
         target_compile_options(${pch} PRIVATE -fPIE)
      endif()
      target_precompile_headers(${pch} PRIVATE ${PTPLIB_PCH_STANDARD} ${arg_HEADERS})
   endif()
   target_precompile_headers(${target} REUSE_FROM ${pch})
endfunction()

# ptplib_compiled_together(target): compiles the target's sources together, except records of modules
# and large generated sources.
function(ptplib_compiled_together target)
   if(PTPLIB_UNITY)
      set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 12)
   endif()
endfunction()
