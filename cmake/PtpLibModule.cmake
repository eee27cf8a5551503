# Modules: declaration files that become sources of a library.

if(EXISTS "${CMAKE_CURRENT_SOURCE_DIR}/cmake/KivcModule.cmake")
   include(KivcModule)
endif()

# ptplib_module_files(out dir...): the declaration files in the directories, in the order in which
# their records are to be linked. A record registers its module when the library is loaded, and
# initialisers run in link order; file(GLOB) sorts, so that is the order of the names.
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
