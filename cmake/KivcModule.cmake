# kivc_module(target file.kiv [ROOTS dir...] [PARTS count])
# Adds a module of declarations to a target: kivc generates the module's C++ below
# KIVC_GENERATED_DIR when the target is built, and again when the declarations, those of the modules
# that they use, or the compiler change. Files whose content stays the same are not touched, so that
# only what is affected is recompiled.
#
#    find_package(PtpLib REQUIRED)
#    add_library(Demo Demo/Operations.cpp)
#    target_link_libraries(Demo PUBLIC PtpLib::PtpLib)
#    kivc_module(Demo Demo/Demo.kiv)            # #include "Demo/Demo/SomeType.h"
#
# Headers are included by the directory of the file, relative to the current source directory (or to
# one of ROOTS). Modules that it uses are searched for in the same directories, one directory below
# them, and among the installed declarations. The types are compiled in PARTS sources (by default, 1
# for every 12 KiB of declarations), each with many types, since most of the time is spent on the
# headers that they all include.

if(NOT DEFINED KIVC_GENERATED_DIR)
   set(KIVC_GENERATED_DIR "${CMAKE_BINARY_DIR}/generated")
endif()

function(kivc_module target file)
   cmake_parse_arguments(PARSE_ARGV 2 arg "" "PARTS" "ROOTS")
   cmake_path(ABSOLUTE_PATH file BASE_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}" NORMALIZE)
   set(roots "${CMAKE_CURRENT_SOURCE_DIR}" ${arg_ROOTS} ${PtpLib_KIV_DIR})
   if(TARGET PtpLib::kivc)
      set(kivc PtpLib::kivc)
   else()
      set(kivc kivc)
   endif()

   # Where the compiler writes the module's files: relative to the first root that contains it.
   cmake_path(GET file STEM module)
   cmake_path(GET file PARENT_PATH directory)
   set(prefix)
   foreach(root IN LISTS roots)
      cmake_path(IS_PREFIX root "${directory}" NORMALIZE inside)
      if(inside)
         cmake_path(RELATIVE_PATH directory BASE_DIRECTORY "${root}" OUTPUT_VARIABLE prefix)
         break()
      endif()
   endforeach()
   set(base "${KIVC_GENERATED_DIR}/${prefix}/${module}")
   cmake_path(NORMAL_PATH base)

   if(NOT arg_PARTS)
      file(SIZE "${file}" size)
      math(EXPR arg_PARTS "1 + ${size} / 12288")
   endif()

   # The list of sources does not depend on the types: it is the record, and parts that include the
   # sources of the types.
   set(sources "${base}Record.cpp")
   foreach(part RANGE 1 ${arg_PARTS})
      list(APPEND sources "${base}Part${part}.cpp")
   endforeach()

   # The list of headers does; the compiler writes it when it runs. The first build compiles
   # everything anyway; later builds read the list first.
   set(list "${base}.headers")
   if(NOT EXISTS "${list}")
      file(WRITE "${list}" "")
   endif()
   set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${list}")
   set_property(TARGET ${target} APPEND PROPERTY KIVC_HEADER_LISTS "${list}")
   file(STRINGS "${list}" headers)
   list(TRANSFORM headers PREPEND "${KIVC_GENERATED_DIR}/")

   # The stamp records when the compiler last ran; the files keep their times unless they change.
   set(stamp "${base}.stamp")
   set(options)
   foreach(root IN LISTS roots)
      list(APPEND options -I "${root}")
   endforeach()
   cmake_path(GET stamp PARENT_PATH stampDirectory)
   file(MAKE_DIRECTORY "${stampDirectory}")
   add_custom_command(OUTPUT "${stamp}"
      BYPRODUCTS ${headers} ${sources}
      COMMAND ${kivc} ${options} --out "${KIVC_GENERATED_DIR}" --parts ${arg_PARTS}
         --headers "${list}" --depfile "${stamp}.d" "${file}"
      COMMAND "${CMAKE_COMMAND}" -E touch "${stamp}"
      DEPENDS "${file}" ${kivc}
      DEPFILE "${stamp}.d"
      COMMENT "Compiling the declarations of ${module}"
      VERBATIM)
   set_source_files_properties(${headers} ${sources} PROPERTIES GENERATED TRUE)
   # Records are linked one by one, since modules register in the order in which they are linked.
   # Of several parts, each is large enough to be compiled alone.
   set(alone "${base}Record.cpp")
   if(arg_PARTS GREATER 1)
      set(alone ${sources})
   endif()
   set_source_files_properties(${alone} PROPERTIES SKIP_UNITY_BUILD_INCLUSION TRUE)
   target_sources(${target} PRIVATE "${file}" "${stamp}" ${headers} ${sources})
   set_property(GLOBAL APPEND PROPERTY KIVC_STAMPS "${stamp}")
   target_include_directories(${target} PUBLIC "$<BUILD_INTERFACE:${KIVC_GENERATED_DIR}>")
endfunction()
