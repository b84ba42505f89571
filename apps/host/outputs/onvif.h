// ONVIF metadata: one tt:MetadataStream document with a tt:Frame for every frame that detection ran on.
#pragma once

#include "common/file_writer.h"
#include "outputs/output.h"
#include "outputs/track_follower.h"

namespace fleifeisa::host {

/// Written to "PATH.part" until the end: a document without its last tag is none. The ids are track numbers
/// (track_follower.h).
class OnvifOutput : public Output {
 public:
    explicit OnvifOutput(const std::string& path);
    void started(const CameraInfo&) override { follower_.endAll(); }
    void frame(const FrameResult& result) override;
    void finish() override;

 private:
    FileWriter file_;
    TrackFollower follower_;
    bool finished_ = false;
};

}  // namespace fleifeisa::host
