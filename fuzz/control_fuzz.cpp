// The control file, against a second reader that splits each line into its tokens first.
#include <cmath>
#include <cstring>
#include <fstream>
#include <vector>

#include "fuzz/bytes.h"
#include "fuzz/temproot.h"
#include "host/Control.h"

namespace {

// The next run of bytes outside `delimiters` from `at` on; `at` then stands behind the one delimiter that ended it.
// Null where there is none.
struct Token {
    bool found = false;
    std::string text;
};
Token next(const std::string& line, std::size_t& at, const std::string& delimiters) {
    while (at < line.size() && delimiters.find(line[at]) != std::string::npos) at++;
    if (at >= line.size()) return {};
    Token t{true, ""};
    while (at < line.size() && delimiters.find(line[at]) == std::string::npos) t.text += line[at++];
    if (at < line.size()) at++;
    return t;
}

void readPiece(const std::string& line, control& c) {
    const std::string all = "<>\"= ", quote = "\"";
    std::size_t at = 0;
    for (Token t = next(line, at, all); t.found; t = next(line, at, all)) {
        if (!t.text.starts_with("name")) continue;
        const Token key = next(line, at, all);
        if (!key.found) return;
        const char* const keys[] = {"-color_low", "-color_high", "-ir_low", "-ir_high", "-bgframes"};
        for (int i = 0; i < 5; i++) {
            if (!key.text.starts_with(keys[i])) continue;
            if (!next(line, at, all).found) return;
            const Token value = next(line, at, i == 0 || i == 2 ? all : quote);
            if (!value.found) return;
            float* const numbers[] = {&c.color_low, &c.color_high, &c.ir_low, &c.ir_high};
            if (i < 4)
                *numbers[i] = static_cast<float>(std::strtod(value.text.c_str(), nullptr));
            else
                c.bg_frames = static_cast<int>(std::strtol(value.text.c_str(), nullptr, 10));
        }
    }
}

control readAll(const std::string& content) {
    control c{300, 0.25f, 0.5f, 1.0f, 2.0f};
    for (std::size_t begin = 0; begin < content.size();) {
        std::size_t end = begin;
        while (end < content.size() && end - begin < 511 && content[end++] != '\n') {
        }
        readPiece(std::string(content.substr(begin, end - begin).c_str()), c);  // a NUL ends what is seen of a line
        begin = end;
    }
    return c;
}

bool same(float a, float b) {
    return a == b || (std::isnan(a) && std::isnan(b));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const TempRoot root(7);
    const std::string content(reinterpret_cast<const char*>(data), size);
    std::ofstream(ControlPath(7), std::ios::binary) << content;
    control read{};
    FUZZ_CHECK(updateControl(7, &read), "not read");
    const control want = readAll(content);
    FUZZ_CHECK(read.bg_frames == want.bg_frames, "%d, %d", read.bg_frames, want.bg_frames);
    FUZZ_CHECK(same(read.color_low, want.color_low), "%g, %g", read.color_low, want.color_low);
    FUZZ_CHECK(same(read.color_high, want.color_high), "%g, %g", read.color_high, want.color_high);
    FUZZ_CHECK(same(read.ir_low, want.ir_low), "%g, %g", read.ir_low, want.ir_low);
    FUZZ_CHECK(same(read.ir_high, want.ir_high), "%g, %g", read.ir_high, want.ir_high);
    return 0;
}
