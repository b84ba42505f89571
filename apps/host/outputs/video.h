// Annotated video: boxes, ids and trails burnt into the pictures, encoded to MP4 by ffmpeg.
#pragma once

#include <deque>
#include <map>
#include <string>
#include <vector>

#include "outputs/encoder.h"
#include "outputs/output.h"
#include "outputs/track_follower.h"

namespace fleifeisa::host {

/// Every answered frame is one picture at the camera's nominal rate (10 a second where it is unknown). All pictures
/// have the size of the first one; later frames of another size are fitted into it, with black beside them.
class VideoOutput : public Output {
 public:
    VideoOutput(const std::string& path, const CameraInfo& camera);
    void started(const CameraInfo& camera) override;
    void frame(const FrameResult& result) override;
    void finish() override;

 private:
    struct Point {
        int x, y;
    };
    void sendWaiting(std::int64_t now_ns);
    void paint(const FrameResult& result);
    void annotate(const FrameResult& result, const FollowedFrame& followed);
    Point toPicture(const FrameResult& result, int x, int y) const;

    Encoder encoder_;
    TrackFollower follower_;
    std::map<std::int64_t, std::deque<Point>> trails_;  ///< feet of the boxes in the picture, by track number
    std::vector<std::uint8_t> picture_;
    double rate_;                                                  ///< 0: still unknown
    std::int64_t waiting_since_ns_ = 0;                            ///< time of the picture that waits for it
    bool waiting_ = false;                                         ///< the first picture is not yet sent
    int width_ = 0, height_ = 0;                                   ///< of the picture
    int left_ = 0, top_ = 0, shown_width_ = 0, shown_height_ = 0;  ///< where in it the frame is shown
};

}  // namespace fleifeisa::host
