# Modules: declaration files that are compiled into a library.

if(EXISTS "${CMAKE_CURRENT_SOURCE_DIR}/cmake/KivcModule.cmake")
   include(KivcModule)
endif()

# ptplib_module_files(out dir...): the declaration files in the directories, in the order in which
# their records must be linked. A record registers its module when the library is loaded, and
# initialisers run in link order; since file(GLOB) sorts, modules register in the order of their
# names.
function(ptplib_module_files out)
   set(kivs)
   if(COMMAND kivc_module AND TARGET kivc)
      foreach(dir IN LISTS ARGN)
         file(GLOB found CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/${dir}/*.kiv")
         list(APPEND kivs ${found})
      endforeach()
   endif()
   set(${out} "${kivs}" PARENT_SCOPE)
endfunction()

# ptplib_generated_headers(out library): the headers that kivc generates for the library's modules,
# by the paths with which they are included.
function(ptplib_generated_headers out library)
   get_target_property(found ${library} SOURCES)
   set(headers)
   foreach(file IN LISTS found)
      cmake_path(IS_PREFIX KIVC_GENERATED_DIR "${file}" generated)
      cmake_path(GET file EXTENSION LAST_ONLY extension)
      if(generated AND extension STREQUAL ".h")
         cmake_path(RELATIVE_PATH file BASE_DIRECTORY "${KIVC_GENERATED_DIR}")
         list(APPEND headers "${file}")
      endif()
   endforeach()
   set(${out} "${headers}" PARENT_SCOPE)
endfunction()
