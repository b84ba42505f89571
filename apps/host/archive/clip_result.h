// What stands in the result of a run, as values.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "archive/archive.h"

namespace fleifeisa::host {

/// An event with all its messages in one.
struct ResultEvent {
    std::int64_t number = 0;  ///< within the clip
    std::string kind, rule, reason, text;
    std::string changes;     ///< all, by commas: "enter,dwell,leave"
    std::int64_t track = 0;  ///< within the clip, 0: none
    std::int64_t visit = 0;
    std::int64_t start_ns = 0, end_ns = 0;  ///< end: of the latest message where it has none
    std::optional<double> value;
    bool held = false;
    std::string message;         ///< the latest, as it stands in the file
    std::string thumb, picture;  ///< relative to the result, "": none; picture: with its box
    std::string strip;           ///< one picture a second
    std::string video;           ///< of its visit, "": the clip itself is to be played
};

struct ResultTrack {
    std::int64_t number = 0;
    std::int64_t start_ns = 0, end_ns = 0;
    std::int64_t frames = 0;
    double path_px = 0;
    std::string ended;    ///< why
    std::string message;  ///< as it stands in the file
    std::string thumb;
};

struct ClipResult {
    ClipSummary summary;
    std::vector<ResultEvent> events;  ///< by number
    std::vector<ResultTrack> tracks;  ///< by number
};

/// @throws std::exception with the file's name where a file is missing or damaged
ClipResult readResult(const Archive& archive, const std::string& name);

}  // namespace fleifeisa::host
