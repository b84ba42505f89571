// Tracks at their end: JSON Lines, one object a track.
#pragma once

#include <map>

#include "common/file_writer.h"
#include "outputs/output.h"
#include "outputs/track_follower.h"
#include "outputs/track_path.h"

namespace fleifeisa::host {

/// Written in place, each line when its track ends. Objects without a track (id 0) are not in it.
class TracksOutput : public Output {
 public:
    explicit TracksOutput(const std::string& path) : file_(path) {}
    void started(const CameraInfo& camera) override;
    void frame(const FrameResult& result) override;
    void finish() override;

 private:
    struct Moment {
        std::int64_t sequence = 0, time_ns = 0;
    };
    struct Track {
        Moment start, end;
        TrackPath path;
    };
    void write(std::span<const std::int64_t> ended, std::string_view reason);

    FileWriter file_;
    TrackFollower follower_;
    std::map<std::int64_t, Track> tracks_;  ///< the open ones, by track number
    std::string camera_;
};

}  // namespace fleifeisa::host
