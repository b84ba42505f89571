// What the store keeps, as rows: how it is written and read.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>

#include "events/event.h"
#include "events/rule_engine.h"
#include "events/what_if.h"
#include "store/database.h"

namespace fleifeisa::host {

/// A track that has ended.
struct StoredTrack {
    PastTrack track;
    int frames = 0;             ///< in which it was seen
    double path_px = 0;         ///< length of its way
    int width = 0, height = 0;  ///< of the analyzed frame
    bool removed = false;
    double path_error = 0;  ///< FootPath::error()
};

/// One minute of a camera.
struct ActivityMinute {
    static constexpr int kSide = 16;
    std::int64_t minute = 0;  ///< since 1970, UTC
    double foreground = 0;    ///< mean share of the picture
    /// Rows from the top: share of frames in which a foot or box was in that cell, 0 to 255.
    std::array<std::uint8_t, kSide * kSide> grid{};
};

/// An event with what the store attached to it.
struct StoredEvent {
    CameraEvent event;
    std::string changes;  ///< all so far, by commas: "enter,dwell,leave"
    int pictures = 0;
    ClipState clip = ClipState::kNone;
    bool keep = false;  ///< never aged out
};

constexpr std::int64_t kHourNs = 3'600'000'000'000;

/// Counts of one line and hour (since 1970, UTC).
struct LineHour {
    std::int64_t forward = 0, backward = 0;
};

/// Writes within the caller's transaction. Writing the same event again brings its row up to date.
class RecordWriter {
 public:
    explicit RecordWriter(Database& database);
    void event(std::int64_t camera, const CameraEvent& event);
    void track(std::int64_t camera, const StoredTrack& track);
    void count(std::int64_t camera, const std::string& line, std::int64_t hour, const LineHour& count);
    void scene(std::int64_t camera, const PastScene& scene);
    void minute(std::int64_t camera, const ActivityMinute& minute);
    void nearMiss(std::int64_t camera, const NearMiss& miss);
    void parameters(const std::string& hash, const std::string& text, std::int64_t time_ns);

 private:
    Statement event_, track_, count_, scene_, minute_, near_miss_, parameters_;
};

/// Columns that readEvent() expects, of the table events as e and cameras as c.
extern const char* const kEventColumns;
StoredEvent readEvent(const Statement& row);

}  // namespace fleifeisa::host
