# ptplib_embed(target HEADER header NAMESPACE namespace DIR dir FILES path=file...)
# Compiles files into a target, so that a program needs none of them when it runs. The source that
# this writes defines what the header declares: `embeddedFiles()`, in the order given. Files are in
# the directory, or have an absolute path.
#
# A file is read when the build is configured, and again when it has changed.
function(ptplib_embed target)
   cmake_parse_arguments(PARSE_ARGV 1 arg "" "HEADER;NAMESPACE;DIR" "FILES")
   set(arrays "")
   set(rows "")
   set(n 0)
   foreach(entry IN LISTS arg_FILES)
      string(REGEX MATCH "^([^=]*)=(.*)$" matched "${entry}")
      set(path "${CMAKE_MATCH_1}")
      cmake_path(ABSOLUTE_PATH CMAKE_MATCH_2
         BASE_DIRECTORY "${PROJECT_SOURCE_DIR}/${arg_DIR}" OUTPUT_VARIABLE file)
      set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${file}")
      file(READ "${file}" bytes HEX)
      string(REGEX REPLACE "(................................)" "\\1\n" bytes "${bytes}")
      string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
      string(APPEND arrays "constexpr unsigned char file${n}[] = {\n${bytes}};\n\n")
      string(APPEND rows "      {\"${path}\", {reinterpret_cast<char const*>(file${n}), sizeof(file${n})}},\n")
      math(EXPR n "${n} + 1")
   endforeach()
   file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/embedded/${target}.cpp" @ONLY CONTENT
      [[// Made from the files that it contains.
#include "@arg_HEADER@"

namespace @arg_NAMESPACE@ {

namespace {

@arrays@}  // namespace

std::span<EmbeddedFile const> embeddedFiles() {
   static EmbeddedFile const files[] = {
@rows@   };
   return files;
}

}  // namespace @arg_NAMESPACE@
]])
   target_sources(${target} PRIVATE "${PROJECT_BINARY_DIR}/embedded/${target}.cpp")
endfunction()
