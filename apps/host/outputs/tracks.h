// Tracks at their end: JSON Lines, one object a track.
#pragma once

#include <map>

#include "outputs/file_output.h"
#include "outputs/track_follower.h"
#include "outputs/track_path.h"

namespace fleifeisa::host {

/// Written in place, each line when its track ends. Objects without a track (id 0) are not in it.
class TracksOutput : public FileOutput {
 public:
    explicit TracksOutput(const std::string& path, const FilePolicy& policy = {})
        : FileOutput(path, WriteMode::kInPlace, policy) {}
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

    TrackFollower follower_;
    std::map<std::int64_t, Track> tracks_;  ///< the open ones, by track number
    std::string camera_;
};

}  // namespace fleifeisa::host
