// A JSON string literal.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace fleifeisa::host {

/// Quoted and escaped; control characters as \u00XX. Bytes of 128 and above pass unchanged (UTF-8 stays UTF-8).
inline std::string jsonText(std::string_view text) {
    std::string result = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            result += '\\';
            result += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char code[8];
            std::snprintf(code, sizeof code, "\\u%04x", static_cast<unsigned>(static_cast<unsigned char>(c)));
            result += code;
        } else {
            result += c;
        }
    }
    return result + "\"";
}

}  // namespace fleifeisa::host
