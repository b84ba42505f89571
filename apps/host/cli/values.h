// Values as users write them, on the command line and in configuration files.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

#include "sources/mask.h"
#include "sources/pixels.h"
#include "sources/source.h"

namespace fleifeisa::host {

/// What is expected instead, as the end of a sentence: "expected WIDTHxHEIGHT, such as 320x240".
struct ValueError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// "320x240"; "384": larger pictures are scaled down so that their longer side is that; "full": as they come, whatever a
/// profile says. Sets size or longest side. @throws ValueError
void parseSize(const std::string& text, SourceOptions& source);
/// "160x120+40+20": width x height + left + top. @throws ValueError
Region parseRegion(const std::string& text);
/// "color", "ir" or "auto", any case. @throws ValueError
enum class ImageType { kColor, kInfrared, kByPicture };
ImageType parseImageType(const std::string& text);
/// "bt601", "bt709", "bt2020". @throws ValueError
Matrix parseMatrix(const std::string& text);
/// "full" or "limited"; true for full. @throws ValueError
bool parseFullRange(const std::string& text);
/// "0,0 1,0 1,0.2 0,0.2": corners in shares of the picture. @throws ValueError
Mask parseMask(const std::string& text);
/// What is wrong with a polygon, "" where nothing is.
std::string maskFault(const Mask& mask);
/// "filtered" or "raw"; true for raw. @throws ValueError
bool parseRawTracks(const std::string& text);
/// A moment as RFC 3339 has it, "2026-03-01T12:00:00.5+01:00", as nanoseconds since 1970. @throws ValueError
std::int64_t parseMoment(const std::string& text);
/// A decimal number the analyzer's control file takes, returned as written. @throws ValueError
std::string parseThreshold(const std::string& text);
/// "500", "64 kB", "100 MB", "2 GB": bytes, in powers of 1000. @throws ValueError
std::uint64_t parseBytes(const std::string& text);
/// "127.0.0.1:8480", "[::1]:8480", "0.0.0.0": an address to listen at, and a port (8480). @throws ValueError
std::pair<std::string, int> parseListen(const std::string& text);
/// "90 s", "30 min", "24 h", "7 days", as seconds; at most a year. @throws ValueError
double parseDuration(const std::string& text);

}  // namespace fleifeisa::host
