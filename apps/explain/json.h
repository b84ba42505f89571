// Numbers and names as JSON. Without a locale; what is no number is null.
#pragma once

#include <array>
#include <charconv>
#include <cmath>
#include <concepts>
#include <string>
#include <string_view>

namespace fleifeisa::explain {

template <std::integral Number>
std::string text(Number value) {
    return std::to_string(value);
}
inline std::string text(bool value) {
    return value ? "true" : "false";
}
/// The fewest digits that mean the same number.
inline std::string text(double value) {
    if (!std::isfinite(value)) return "null";
    std::array<char, 40> digits{};
    return {digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr};
}
/// A float of the control file, without the digits that it gains as a double.
inline std::string text(float value) {
    if (!std::isfinite(value)) return "null";
    std::array<char, 40> digits{};
    return {digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr};
}

/// Members of an object, in the order in which they are added. Names and texts are this program's own: they need no
/// quoting.
class Members {
 public:
    Members& raw(std::string_view name, std::string_view json) {
        text_ += text_.empty() ? "\"" : ",\"";
        text_ += name;
        text_ += "\":";
        text_ += json;
        return *this;
    }
    template <class Value>
    Members& add(std::string_view name, Value value) {
        return raw(name, text(value));
    }
    Members& word(std::string_view name, std::string_view value) { return raw(name, '"' + std::string(value) + '"'); }
    std::string object() const { return '{' + text_ + '}'; }

 private:
    std::string text_;
};

class Items {
 public:
    void raw(std::string_view json) {
        if (!text_.empty()) text_ += ',';
        text_ += json;
    }
    std::string array() const { return '[' + text_ + ']'; }

 private:
    std::string text_;
};

/// [a,b,...]
template <class... Values>
std::string list(Values... values) {
    Items items;
    (items.raw(text(values)), ...);
    return items.array();
}

}  // namespace fleifeisa::explain
