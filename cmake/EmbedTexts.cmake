# Writes a C++ source with functions that return texts:
# cmake -DOUTPUT=x.cpp -DHEADER=room/x.h "-DTEXTS=function=file|function=file" -P EmbedTexts.cmake
set(functions "")
string(REPLACE "|" ";" texts "${TEXTS}")
foreach(text ${texts})
  string(REGEX MATCH "^([A-Za-z]+)=(.*)$" whole "${text}")
  set(function ${CMAKE_MATCH_1})
  file(READ ${CMAKE_MATCH_2} hex HEX)
  string(LENGTH "${hex}" length)
  math(EXPR count "${length} / 2")
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," values "${hex}")
  string(APPEND functions "std::string_view ${function}() {
    static constexpr unsigned char kBytes[] = {${values}0};
    return {reinterpret_cast<const char*>(kBytes), ${count}};
}
")
endforeach()
file(WRITE ${OUTPUT}.new "// Generated from files.
#include \"${HEADER}\"

namespace fleifeisa::host {

${functions}
}  // namespace fleifeisa::host
")
file(COPY_FILE ${OUTPUT}.new ${OUTPUT} ONLY_IF_DIFFERENT)
