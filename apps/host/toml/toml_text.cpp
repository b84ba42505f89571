#include "toml/toml_text.h"

#include <algorithm>

#include "common/text.h"

namespace fleifeisa::host {
namespace {

constexpr char kMark = '~';
constexpr char kDigits[] = "0123456789ABCDEF";

/// Every byte beyond ASCII, and the mark itself, as the mark and two digits. The parser's own look at a character
/// beyond ASCII that stands outside of quotes is undefined for many of them, so it gets to see none; the mark is as
/// wrong there, and as right within quotes, where nothing in TOML makes it special.
std::string toAscii(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80 && c != kMark)
            result += c;
        else
            result.append({kMark, kDigits[byte >> 4], kDigits[byte & 15]});
    }
    return result;
}

std::string fromAscii(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        const bool marked = text[at] == kMark && at + 2 < text.size();
        const std::size_t high = marked ? std::string_view(kDigits).find(text[at + 1]) : std::string_view::npos;
        const std::size_t low = marked ? std::string_view(kDigits).find(text[at + 2]) : std::string_view::npos;
        if (high < 16 && low < 16) {
            result += static_cast<char>(high << 4 | low);
            at += 2;
        } else {
            result += text[at];
        }
    }
    return result;
}

void restore(toml::node& node) {
    if (auto* const text = node.as_string())
        **text = fromAscii(**text);
    else if (auto* const array = node.as_array())
        for (toml::node& item : *array) restore(item);
    else if (auto* const table = node.as_table())
        for (auto&& [key, value] : *table) restore(value);
}

std::string_view lineOf(std::string_view text, std::size_t number) {
    for (; number > 1; --number) {
        const std::size_t end = text.find('\n');
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return text.substr(0, text.find('\n'));
}

bool isBeyondAscii(char c) {
    return static_cast<unsigned char>(c) >= 0x80;
}

/// The first line with bytes that are no UTF-8; 0 for none. What the parser refuses by itself is left to it.
std::size_t brokenLine(std::string_view text) {
    std::size_t number = 0;
    while (!text.empty()) {
        ++number;
        const std::size_t end = text.find('\n');
        const std::size_t length = end == std::string_view::npos ? text.size() : end + 1;
        std::string line(text.substr(0, length));
        std::erase_if(line, [](char c) { return (c >= 0 && c < ' ') || c == '\x7F'; });
        if (cleanUtf8(line) != line) return number;
        text.remove_prefix(length);
    }
    return 0;
}

}  // namespace

toml::table parseToml(std::string_view text, const std::string& path) {
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);  // byte order mark
    const auto fault = [&path](std::size_t line, const std::string& what) {
        return TomlFault(path + (line > 0 ? ":" + std::to_string(line) : "") + ": " + what);
    };
    if (const std::size_t line = brokenLine(text); line > 0) throw fault(line, "this is not UTF-8");
    try {
        toml::table root = toml::parse(toAscii(text), std::string_view(path));
        restore(root);
        return root;
    } catch (const toml::parse_error& error) {
        const std::size_t line = error.source().begin.line;
        std::string what = fromAscii(error.description());
        if (line > 0 && std::ranges::any_of(lineOf(text, line), isBeyondAscii))
            what += "; characters beyond ASCII stand within quotes only";
        throw fault(line, cleanUtf8(what));
    }
}

}  // namespace fleifeisa::host
