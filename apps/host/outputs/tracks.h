// Tracks at their end: JSON Lines, one object a track.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "outputs/file_output.h"
#include "outputs/track_path.h"

namespace fleifeisa::host {

/// Written in place, each line when its track ends.
class TracksOutput : public FileOutput {
 public:
    explicit TracksOutput(const std::string& path, const FilePolicy& policy = {})
        : FileOutput(path, WriteMode::kInPlace, policy) {}
    void started(const CameraInfo& camera) override;
    void frame(const FrameResult& result) override;
    void ended(const TrackFrame& frame, TrackEnd) override { writeEnded(frame); }

 private:
    struct Open {
        Track latest;  ///< as it was seen last
        int width = 0, height = 0;
        TrackPath path;
    };
    void writeEnded(const TrackFrame& frame);
    void write(const Track& track);

    std::map<std::int64_t, Open> open_;  ///< by track number
    std::string camera_;
    std::optional<Box> region_;
};

}  // namespace fleifeisa::host
