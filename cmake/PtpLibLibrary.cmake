# Decides which files in a directory and its subdirectories belong to what. No lists are kept by
# hand, so that no file and no test can be forgotten: `*.test.cpp` are tests, `*.bench.cpp`
# benchmarks, `*.test.h` headers for tests, and everything else belongs to the library. No type can
# have a dot in its name, so none of its files is mistaken for a test.

# ptplib_files(out pattern EXCLUDE|INCLUDE ending dir...): the files below the directories that match
# the pattern: all but those with the ending, or only those.
function(ptplib_files out pattern mode ending)
   set(files)
   foreach(dir IN LISTS ARGN)
      file(GLOB_RECURSE found CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/${dir}/${pattern}")
      list(APPEND files ${found})
   endforeach()
   list(FILTER files ${mode} REGEX "[.](${ending})$")
   set(${out} "${files}" PARENT_SCOPE)
endfunction()

# These find in the directories the sources that are neither tests nor benchmarks, the tests, the
# benchmarks, and the headers that are not for tests.
macro(ptplib_sources out)
   ptplib_files(${out} "*.cpp" EXCLUDE "(test|bench)[.]cpp" ${ARGN})
endmacro()
macro(ptplib_tests out)
   ptplib_files(${out} "*.cpp" INCLUDE "test[.]cpp" ${ARGN})
endmacro()
macro(ptplib_benches out)
   ptplib_files(${out} "*.cpp" INCLUDE "bench[.]cpp" ${ARGN})
endmacro()
macro(ptplib_headers out)
   ptplib_files(${out} "*.h" EXCLUDE "test[.]h" ${ARGN})
endmacro()

# ptplib_library(name DIRS dir... [INTERNAL dir...] [LINK library...] [PACKAGES package...]
#    [PRIVATE_LINK library...] [PRIVATE_TO_THE_BUILD])
# Builds one shared object from the sources and modules in the directories. INTERNAL: directories
# among them whose headers are not installed. PACKAGES: packages of headers that its sources use;
# they become part of the library. PRIVATE_LINK: what its sources use and its headers do not.
# PRIVATE_TO_THE_BUILD: it is not installed.
function(ptplib_library name)
   cmake_parse_arguments(PARSE_ARGV 1 arg "PRIVATE_TO_THE_BUILD" "" "DIRS;INTERNAL;LINK;PACKAGES;PRIVATE_LINK")
   ptplib_sources(sources ${arg_DIRS})
   ptplib_module_files(kivs ${arg_DIRS})
   if(NOT sources AND NOT kivs)
      return()
   endif()

   add_library(${name} SHARED ${sources})
   add_library(PtpLib::${name} ALIAS ${name})
   set_target_properties(${name} PROPERTIES
      VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
   target_compile_features(${name} PUBLIC cxx_std_20)
   target_include_directories(${name} PUBLIC
      "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>" "$<INSTALL_INTERFACE:${PTPLIB_INSTALL_INCLUDEDIR}>")
   ptplib_link(${name} PUBLIC ${arg_LINK})
   foreach(library IN LISTS arg_PRIVATE_LINK)
      target_link_libraries(${name} PRIVATE "$<BUILD_INTERFACE:${library}>")
   endforeach()
   foreach(package IN LISTS arg_PACKAGES)
      find_package(${package} REQUIRED)
      ptplib_link(${name} PRIVATE ${package}::${package})
   endforeach()
   ptplib_compiled_together(${name})
   # An undefined symbol is an error here rather than in the program that loads the library. With a
   # sanitizer, whose runtime is linked to that program, this is not possible.
   if(NOT PTPLIB_SANITIZE)
      target_link_options(${name} PRIVATE LINKER:-z,defs)
   endif()
   # The library's references to itself are not looked up at load, except those to the data of which
   # a program may have the one copy that counts. Addresses are relocated by a bit each.
   target_link_options(${name} PRIVATE LINKER:-Bsymbolic
      "LINKER:--dynamic-list=${PROJECT_SOURCE_DIR}/cmake/processWide.list")
   set_property(TARGET ${name} APPEND PROPERTY
      LINK_DEPENDS "${PROJECT_SOURCE_DIR}/cmake/processWide.list")
   if(PTPLIB_PACKS_RELOCATIONS)
      target_link_options(${name} PRIVATE LINKER:-z,pack-relative-relocs)
   endif()
   if(kivs)
      # A program that links a library of modules can use its types by name without calling any
      # of its functions, so the linker must not drop the library.
      target_link_options(${name} INTERFACE LINKER:--no-as-needed)
   endif()
   foreach(kiv IN LISTS kivs)
      kivc_module(${name} "${kiv}")
   endforeach()
   ptplib_precompiled(${name})
   ptplib_hides_its_place(${name})
   if(NOT arg_PRIVATE_TO_THE_BUILD)
      set_property(GLOBAL APPEND PROPERTY PTPLIB_INSTALLED_LIBRARIES ${name})
      set_property(GLOBAL APPEND PROPERTY PTPLIB_INSTALLED_DIRS ${arg_DIRS})
      set_property(GLOBAL APPEND PROPERTY PTPLIB_INTERNAL_DIRS ${arg_INTERNAL})
   endif()
endfunction()

# ptplib_link(target PUBLIC|PRIVATE|INTERFACE library...): links targets. A name that is not a
# target is an error: CMake would pass it to the linker, which looks for such a library on the
# system.
function(ptplib_link target scope)
   foreach(library IN LISTS ARGN)
      if(NOT TARGET ${library})
         message(FATAL_ERROR "${target}: there is no target '${library}' to link")
      endif()
      target_link_libraries(${target} ${scope} ${library})
   endforeach()
endfunction()

# ptplib_opens_libraries(target): the program is not linked with the libraries of modules, but opens
# them at run time from PTPLIB_LIB_DIR.
function(ptplib_opens_libraries target)
   if(TARGET ${target} AND TARGET PtpLib)
      target_compile_definitions(${target} PRIVATE
         PTPLIB_LIB_DIR="${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
      add_dependencies(${target} PtpLib)
   endif()
endfunction()

# ptplib_hides_its_place(target): what is installed does not name the place of the sources, which
# are compiled together by their absolute paths.
function(ptplib_hides_its_place target)
   target_compile_options(${target} PRIVATE "-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=")
endfunction()
