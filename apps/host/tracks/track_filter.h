// From the analyzer's objects to tracks, one call a frame: refiner (look again at the pixels around the boxes), then
// tracker (follow what was found), then scene state.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "analyzer/reply.h"
#include "tracks/track.h"

namespace fleifeisa::host {

/// What a user chooses; everything else is a constant (tracks/constants.h). Hashed and kept with recordings.
struct FilterSettings {
    double least_area = 5e-4;   ///< of the frame, for a track to be born; 0 to 1
    bool shadow_test = true;    ///< colour only: what is only darker is not foreground (costs dark clothes)
    bool split_people = false;  ///< two beside each other in one blob become two
    bool infrared = false;      ///< one channel: no shadow test
    bool by_picture = false;    ///< the camera's night mode is no change of the scene

    bool operator==(const FilterSettings&) const = default;
};

/// One answered frame as the filter needs it.
struct FilterInput {
    std::int64_t time_ns = 0;           ///< strictly rising
    int width = 0, height = 0;          ///< pixels; a change of size begins anew (tracks end with kSource)
    std::span<const std::uint8_t> rgb;  ///< width * height * 3
    bool detection = false;             ///< false: the analyzer learns
    std::span<const AnalyzerObject> objects;
};

struct FilterView;

class TrackFilter {
 public:
    /// @param first_number  of the first track to be confirmed
    /// @param learning_frames  how many frames the analyzer learns; a hint for which of them to keep
    TrackFilter(const FilterSettings& settings, int learning_frames, std::int64_t first_number = 1);
    ~TrackFilter();
    TrackFilter(const TrackFilter&) = delete;
    TrackFilter& operator=(const TrackFilter&) = delete;

    /// The result's views are valid until the next call.
    /// @param view  takes what the filter saw on its way (filter_view.h); the result is the same with and without
    TrackFrame frame(const FilterInput& input, FilterView* view = nullptr);
    /// Ends every track for this reason; the result holds them, once. The background is kept.
    TrackFrame end(TrackEnd why);
    /// A fresh analyzer answers from the next frame on: tracks live on, its object ids begin again.
    void analyzerRestarted();
    /// An analyzer that has learned already answers from the next frame on, and other settings hold: tracks live on.
    /// @param new_picture  frames look otherwise than before (masks, night mode): the background is learned anew
    void handOver(const FilterSettings& settings, int learning_frames, bool new_picture);
    /// Behind handOver(): a frame from which the new analyzer has learned. No frame of the camera: nothing moves.
    void warmUp(const FilterInput& input);
    std::int64_t nextNumber() const;
    /// After a frame: all that live on, and what reasonsOf() needs of a view, for little.
    void glance(FilterView& view) const;

 private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace fleifeisa::host
