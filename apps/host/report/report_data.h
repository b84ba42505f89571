// What the report shows, gathered by ReportOutput and laid out by reportPage().
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "outputs/track_path.h"

namespace fleifeisa::host {

/// Tracks seen in fewer frames are set apart: leaves, reflections and the like are among them.
constexpr std::int64_t kBriefFrames = 10;

struct ReportTrack {
    std::int64_t number = 0;
    std::int64_t start_ns = 0, end_ns = 0;  ///< since the first frame
    int box_width = 0, box_height = 0;      ///< pixels, of the box with the most foreground
    TrackPath path;
    std::string thumbnail;  ///< JPEG of the box with the most foreground

    bool brief() const { return path.sightings() < kBriefFrames; }
};

/// Some frames in a row.
struct ReportSpan {
    std::int64_t start_ns = 0, end_ns = 0;  ///< since the first frame: of its first frame, of the frame behind its last
    std::int64_t frames = 0;                ///< with detection
    std::int64_t learning = 0;              ///< without
    std::int64_t share_sum = 0;             ///< foreground share of the picture in millionths, summed over `frames`
    std::int64_t share_max = 0;
    std::int64_t tracks_max = 0;  ///< at once
};

/// An event as it was told last.
struct ReportEvent {
    std::int64_t number = 0, track = 0;
    std::int64_t start_ns = 0, end_ns = -1;  ///< since the first frame; -1: it runs
    std::string kind, rule, changes, value, reason;
    bool held = false;
};

/// A zone or line as it lies over the first frame, in its pixels.
struct ReportShape {
    std::string name;
    bool line = false;
    std::vector<Point> points;
    std::int64_t forward = 0, backward = 0;  ///< crossings of a line
};

struct ReportData {
    std::string camera, source;
    bool infrared = false, live = false;
    bool raw = false;           ///< the analyzer's ids instead of the track filter
    double rate = 0;            ///< nominal frames a second, 0: unknown
    int width = 0, height = 0;  ///< of the first frame; positions are in its pixels
    bool size_changed = false;
    std::int64_t first_ns = 0;     ///< time of the first frame as it came
    std::int64_t duration_ns = 0;  ///< to the end of the last frame
    std::int64_t frames = 0, detected = 0, dropped = 0;
    std::vector<std::int64_t> restarts_ns;  ///< fresh analyzers behind the first one, at most 100 of them
    std::int64_t restarts = 0;              ///< all of them
    std::int64_t loose_objects = 0;         ///< sightings that belong to no track
    std::int64_t tracks_left_out = 0;       ///< the briefest, where there were too many
    std::vector<ReportTrack> tracks;        ///< by start, then number
    std::vector<ReportSpan> spans;
    std::vector<ReportShape> shapes;
    std::vector<ReportEvent> events;   ///< by number
    std::int64_t events_left_out = 0;  ///< later ones, where there were too many
    std::string background;            ///< JPEG, "" without a frame
    std::size_t background_samples = 0;
};

/// The whole page: one HTML document that needs nothing else.
std::string reportPage(const ReportData& data);

// Its drawings, as SVG elements.
std::string trackMap(const ReportData& data);
std::string timeline(const ReportData& data, bool brief);
std::string shareChart(const ReportData& data);
/// "" where nothing was watched for and nothing told.
std::string eventsSection(const ReportData& data);
/// Style sheet and script.
extern const char* const kReportStyle;
extern const char* const kReportScript;

}  // namespace fleifeisa::host
