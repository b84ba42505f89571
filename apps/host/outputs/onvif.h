// ONVIF metadata: one tt:MetadataStream document with a tt:Frame for every frame that detection ran on.
#pragma once

#include "outputs/file_output.h"
#include "outputs/track_follower.h"

namespace fleifeisa::host {

/// Written to "PATH.part" until the end: a document without its last tag is none. The ids are track numbers
/// (track_follower.h).
class OnvifOutput : public FileOutput {
 public:
    explicit OnvifOutput(const std::string& path, const FilePolicy& policy = {});
    void started(const CameraInfo&) override { follower_.endAll(); }
    void frame(const FrameResult& result) override;
    void finish() override;

 private:
    TrackFollower follower_;
    bool finished_ = false;
};

}  // namespace fleifeisa::host
