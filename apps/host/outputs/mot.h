// MOTChallenge CSV: frame, id, left, top, width, height, confidence, x, y, z; 1-based, one line an object.
#pragma once

#include "common/file_writer.h"
#include "outputs/output.h"
#include "outputs/track_follower.h"

namespace fleifeisa::host {

/// Written in place. The ids are track numbers (track_follower.h): unique in a frame and in the file.
class MotOutput : public Output {
 public:
    explicit MotOutput(const std::string& path) : file_(path) {}
    void started(const CameraInfo&) override { follower_.endAll(); }
    void frame(const FrameResult& result) override;
    void finish() override { file_.close(); }

 private:
    FileWriter file_;
    TrackFollower follower_;
};

}  // namespace fleifeisa::host
