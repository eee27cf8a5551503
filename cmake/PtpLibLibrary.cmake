# ptplib_sources(out dir...): the sources in the directories that are neither test nor benchmark.
# Lists are never kept by hand, so that no file and no test can be left out.
function(ptplib_sources out)
   set(sources)
   foreach(dir IN LISTS ARGN)
      file(GLOB found CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/${dir}/*.cpp")
      list(FILTER found EXCLUDE REGEX "(Test|Bench)\\.cpp$")
      list(APPEND sources ${found})
   endforeach()
   set(${out} "${sources}" PARENT_SCOPE)
endfunction()

# ptplib_library(name DIRS dir... [LINK library...] [PRIVATE_TO_THE_BUILD])
# One shared object of the sources and the modules in the directories. PRIVATE_TO_THE_BUILD: it is
# not installed.
function(ptplib_library name)
   cmake_parse_arguments(PARSE_ARGV 1 arg "PRIVATE_TO_THE_BUILD" "" "DIRS;LINK")
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
   # A symbol that nothing defines is an error here and not in the program that loads the library,
   # except where a sanitizer's runtime comes with that program.
   if(NOT PTPLIB_SANITIZE)
      target_link_options(${name} PRIVATE LINKER:-z,defs)
   endif()
   # What the library says of its own functions it need not look up when it is loaded. Data stays
   # as it is: a program may have a copy of it.
   target_link_options(${name} PRIVATE LINKER:-Bsymbolic-functions)
   if(kivs)
      # Who links a library of modules wants its types by name, even if he calls no function of it.
      target_link_options(${name} INTERFACE LINKER:--no-as-needed)
   endif()
   foreach(kiv IN LISTS kivs)
      kivc_module(${name} "${kiv}")
   endforeach()
   if(NOT arg_PRIVATE_TO_THE_BUILD)
      set_property(GLOBAL APPEND PROPERTY PTPLIB_INSTALLED_LIBRARIES ${name})
      set_property(GLOBAL APPEND PROPERTY PTPLIB_INSTALLED_DIRS ${arg_DIRS})
   endif()
endfunction()

# ptplib_link(target PUBLIC|PRIVATE library...): links those of the libraries that are built.
function(ptplib_link target scope)
   foreach(library IN LISTS ARGN)
      if(TARGET ${library})
         target_link_libraries(${target} ${scope} ${library})
      endif()
   endforeach()
endfunction()

# ptplib_opens_libraries(target): the program is not linked with the libraries of modules but opens
# them when it runs, from PTPLIB_LIB_DIR.
function(ptplib_opens_libraries target)
   if(TARGET ${target} AND TARGET PtpLib)
      target_compile_definitions(${target} PRIVATE
         PTPLIB_LIB_DIR="${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
      add_dependencies(${target} PtpLib)
   endif()
endfunction()
