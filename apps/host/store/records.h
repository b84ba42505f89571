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

/// What a file of an event shows; the numbers stand in the database.
enum class MediaKind {
    kPicture = 0,   ///< the best view, JPEG
    kBox = 1,       ///< the same with its box
    kThumb = 2,     ///< a small one for lists, JPEG
    kStrip = 3,     ///< a JPEG of tiles, one a second; details: {"tile":[width,height],"columns":n,"times_ns":[...]}
    kClip = 4,      ///< MP4
    kTimes = 5,     ///< times of the clip's frames, JSON
    kPlayable = 6,  ///< the clip as H.264, made on demand
    kWhy = 7,       ///< what the analyzer and the filter had to say at its first frame, JSON (docs/explain.md)
};
constexpr int kMediaKinds = 8;

/// A finished file of an event.
struct StoredMedia {
    MediaKind kind = MediaKind::kPicture;
    std::string file;  ///< relative to the state directory (media_files.h)
    std::int64_t bytes = 0;
    std::int64_t start_ns = 0, end_ns = 0;  ///< of what it shows; of a picture the same moment twice
    int width = 0, height = 0;              ///< 0: none
    std::string details;                    ///< JSON, whatever else a kind has to say; "": nothing

    bool operator==(const StoredMedia&) const = default;
};

/// What somebody thinks of an event.
enum class Verdict { kSeen, kRight, kWrong };

constexpr std::int64_t kHourNs = 3'600'000'000'000;

/// Counts of one line and hour (since 1970, UTC).
struct LineHour {
    std::int64_t forward = 0, backward = 0;
};

/// Writes within the caller's transaction. Writing the same event again brings its row up to date.
class RecordWriter {
 public:
    explicit RecordWriter(Database& database);
    /// @returns the event with what was attached to it before
    StoredEvent event(std::int64_t camera, const CameraEvent& event);
    /// A file in the place of an earlier one of its kind; a clip makes its event's clip ready. Where the event is not
    /// there (any more), the file is to be removed.
    void attach(std::int64_t camera, std::int64_t number, const StoredMedia& media);
    void clip(std::int64_t camera, std::int64_t number, ClipState state);
    std::optional<StoredEvent> find(std::int64_t camera, std::int64_t number);
    void track(std::int64_t camera, const StoredTrack& track);
    void count(std::int64_t camera, const std::string& line, std::int64_t hour, const LineHour& count);
    void scene(std::int64_t camera, const PastScene& scene);
    void minute(std::int64_t camera, const ActivityMinute& minute);
    void nearMiss(std::int64_t camera, const NearMiss& miss);
    void parameters(const std::string& hash, const std::string& text, std::int64_t time_ns);

 private:
    Statement event_, track_, count_, scene_, minute_, near_miss_, parameters_;
    Statement attach_, attached_, clip_, find_, discard_, wanted_;
};

/// Columns that readEvent() expects, of the table events as e and cameras as c.
extern const char* const kEventColumns;
StoredEvent readEvent(const Statement& row);
/// Columns that readMedia() expects, of the table media.
extern const char* const kMediaColumns;
StoredMedia readMedia(const Statement& row);

}  // namespace fleifeisa::host
