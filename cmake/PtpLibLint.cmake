# ptplib_header_check(dir...)
# The target header_check compiles each header of the directories alone, included twice: it needs
# nothing before it, and a second inclusion does no harm.
function(ptplib_header_check)
   set(checks)
   foreach(dir IN LISTS ARGN)
      file(GLOB headers CONFIGURE_DEPENDS RELATIVE "${PROJECT_SOURCE_DIR}"
         "${PROJECT_SOURCE_DIR}/${dir}/*.h")
      foreach(header IN LISTS headers)
         set(check "${CMAKE_BINARY_DIR}/header_check/${header}.cpp")
         file(CONFIGURE OUTPUT "${check}"
            CONTENT "#include \"${header}\"\n#include \"${header}\"\n")
         list(APPEND checks "${check}")
      endforeach()
   endforeach()
   if(NOT checks)
      return()
   endif()
   add_library(header_check OBJECT EXCLUDE_FROM_ALL ${checks})
   target_compile_options(header_check PRIVATE -O0)
   ptplib_link(header_check PRIVATE Kiv PtpPlatform PtpLib KivTest ptpstate_objects)
endfunction()
