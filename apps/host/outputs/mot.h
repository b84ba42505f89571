// MOTChallenge CSV: frame, id, left, top, width, height, confidence, x, y, z; 1-based, one line an object.
#pragma once

#include "outputs/file_output.h"
#include "outputs/track_follower.h"

namespace fleifeisa::host {

/// Written in place. The ids are track numbers (track_follower.h): unique in a frame and in the file.
class MotOutput : public FileOutput {
 public:
    explicit MotOutput(const std::string& path, const FilePolicy& policy = {})
        : FileOutput(path, WriteMode::kInPlace, policy) {}
    void started(const CameraInfo&) override { follower_.endAll(); }
    void frame(const FrameResult& result) override;

 private:
    TrackFollower follower_;
};

}  // namespace fleifeisa::host
