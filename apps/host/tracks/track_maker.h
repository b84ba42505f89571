// What a camera, and a replay of its recording, makes tracks with: the filter, or the analyzer's own ids.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tracks/raw_tracks.h"
#include "tracks/track_filter.h"

namespace fleifeisa::host {

/// Everything that tracks depend on besides frames and replies.
struct TrackSettings {
    bool raw = false;  ///< the analyzer's ids instead of the filter
    FilterSettings filter;
    int learning_frames = 300;
    std::int64_t first_number = 1;  ///< of the filter's first track

    bool operator==(const TrackSettings&) const = default;
};

/// As a recording holds them: "filtered least-area=0.0005 shadow-test=1 ...".
std::string settingsText(const TrackSettings& settings);
/// Nothing where the text is none of these.
std::optional<TrackSettings> parseSettings(std::string_view text);

class TrackMaker {
 public:
    explicit TrackMaker(const TrackSettings& settings);

    /// The clock was set back before a frame of this time: end(TrackEnd::kClock) comes first, and all begins anew.
    bool clockWentBack(std::int64_t time_ns) const;
    /// As TrackFilter's.
    TrackFrame frame(const FilterInput& input, FilterView* view = nullptr);
    TrackFrame end(TrackEnd why);
    void analyzerRestarted();
    /// As TrackFilter's; raw tracks have nothing to show.
    void glance(FilterView& view) const;
    /// As TrackFilter's, for raw tracks a restart. The number of the first track is not looked at.
    void handOver(const TrackSettings& settings, bool new_picture);
    void warmUp(const FilterInput& input) {
        if (filter_) filter_->warmUp(input);
    }
    /// The settings that would go on from here: with the number of the next track.
    TrackSettings settings() const;

 private:
    TrackSettings settings_;
    std::optional<TrackFilter> filter_;
    RawTracks raw_;
    std::optional<std::int64_t> last_ns_;
};

}  // namespace fleifeisa::host
