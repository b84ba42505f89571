// Text as the outputs write it: the same bytes on every machine, whatever its locale.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace fleifeisa {

/// `value` in units of 10^-decimals as a decimal fraction with exactly that many decimals: (-125, 2) is "-1.25".
/// Minus nought is written without its sign.
std::string fixedPoint(std::int64_t value, int decimals);
/// The same of a value that is rounded to so many decimals (at most 9; |value| below 9e9), alike on every machine.
std::string rounded(double value, int decimals);

/// Nanoseconds since 1970 as RFC 3339 in UTC with nine decimals: "2026-03-01T12:00:00.250000000Z".
std::string rfc3339(std::int64_t time_ns);

/// A duration as people read it: "0:07.3", "12:40.0", "3:02:15.0".
std::string clockTime(std::int64_t duration_ns);

/// The text with every byte that is not part of well-formed UTF-8, and every control character, as U+FFFD.
std::string cleanUtf8(std::string_view text);

/// A JSON string with its quotes, always well-formed UTF-8.
std::string jsonString(std::string_view text);

/// Text for XML and HTML, in elements as well as in quoted attributes.
std::string xmlText(std::string_view text);

/// Base64 with padding, without line breaks.
std::string base64(std::string_view bytes);

}  // namespace fleifeisa
