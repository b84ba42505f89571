# Writes a C++ source with the bytes of files: cmake -DOUTPUT=x.cpp -DPAGE=directory -DOPENAPI=openapi.json -P EmbedFiles.cmake
function(bytes_of file name result)
  file(READ ${file} hex HEX)
  string(LENGTH "${hex}" length)
  math(EXPR count "${length} / 2")
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," values "${hex}")
  string(REGEX REPLACE "(0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,)" "\\1\n" values "${values}")
  set(${result} "constexpr unsigned char ${name}[] = {${values}0};\nconstexpr std::size_t ${name}_size = ${count};\n" PARENT_SCOPE)
endfunction()

set(arrays "")
set(table "")
set(index 0)
file(GLOB_RECURSE files RELATIVE ${PAGE} ${PAGE}/*)
list(SORT files)
foreach(file ${files})
  bytes_of(${PAGE}/${file} file_${index} text)
  file(SHA256 ${PAGE}/${file} hash)
  string(SUBSTRING ${hash} 0 16 tag)
  string(APPEND arrays "${text}")
  string(APPEND table "    {\"/${file}\", text(file_${index}, file_${index}_size), \"\\\"${tag}\\\"\"},\n")
  math(EXPR index "${index} + 1")
endforeach()
bytes_of(${OPENAPI} openapi text)
string(APPEND arrays "${text}")
file(WRITE ${OUTPUT}.new "// Generated from the files of the page.
#include \"web/static_files.h\"

#include <array>
#include <cstddef>

namespace fleifeisa::host {
namespace {

${arrays}
std::string_view text(const unsigned char* bytes, std::size_t size) {
    return {reinterpret_cast<const char*>(bytes), size};
}

const std::array<StaticFile, ${index}> kFiles = {{
${table}}};

}  // namespace

std::span<const StaticFile> staticFiles() {
    return kFiles;
}

std::string_view openApi() {
    return text(openapi, openapi_size);
}

}  // namespace fleifeisa::host
")
file(COPY_FILE ${OUTPUT}.new ${OUTPUT} ONLY_IF_DIFFERENT)
