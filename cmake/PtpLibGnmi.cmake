# The gNMI server, which needs gRPC. PTPLIB_ALL makes it an error if that is missing.

# ptplib_gnmi(DIR dir): the library ptpgnmi_proto with the code that protoc makes of the directory's
# *.proto, and PTPLIB_GNMI, whether the program can be built.
function(ptplib_gnmi)
   cmake_parse_arguments(PARSE_ARGV 0 arg "" "DIR" "")
   set(PTPLIB_GNMI OFF PARENT_SCOPE)
   find_package(Protobuf QUIET)
   find_package(gRPC CONFIG QUIET)
   find_program(PTPLIB_GRPC_PLUGIN grpc_cpp_plugin)
   mark_as_advanced(PTPLIB_GRPC_PLUGIN)
   if(NOT gRPC_FOUND OR NOT Protobuf_FOUND OR NOT PTPLIB_GRPC_PLUGIN)
      if(PTPLIB_ALL)
         message(FATAL_ERROR "gRPC is missing: libgrpc++-dev, protobuf-compiler-grpc")
      endif()
      return()
   endif()
   # Its package asks for -pthread, which the precompiled headers are made without. glibc needs no flag.
   set_target_properties(re2::re2 PROPERTIES INTERFACE_COMPILE_OPTIONS "")
   file(GLOB protos CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/${arg_DIR}/*.proto")
   set(out "${CMAKE_BINARY_DIR}/proto")
   file(MAKE_DIRECTORY "${out}")
   foreach(proto IN LISTS protos)
      cmake_path(GET proto STEM stem)
      set(made "${out}/${arg_DIR}/${stem}.pb.cc" "${out}/${arg_DIR}/${stem}.grpc.pb.cc"
         "${out}/${arg_DIR}/${stem}.pb.h" "${out}/${arg_DIR}/${stem}.grpc.pb.h")
      add_custom_command(OUTPUT ${made}
         COMMAND protobuf::protoc "--proto_path=${PROJECT_SOURCE_DIR}" "--cpp_out=${out}"
            "--grpc_out=${out}" "--plugin=protoc-gen-grpc=${PTPLIB_GRPC_PLUGIN}" "${proto}"
         DEPENDS ${protos} VERBATIM)
      list(APPEND sources ${made})
   endforeach()
   add_library(ptpgnmi_proto STATIC ${sources})
   # Not our code: its warnings are not for us.
   target_compile_options(ptpgnmi_proto PRIVATE -w $<$<CONFIG:Release>:-O1>)
   target_include_directories(ptpgnmi_proto SYSTEM PUBLIC "${out}")
   target_link_libraries(ptpgnmi_proto PUBLIC gRPC::grpc++ protobuf::libprotobuf)
   ptplib_hides_its_place(ptpgnmi_proto)
   set(PTPLIB_GNMI ON PARENT_SCOPE)
endfunction()
