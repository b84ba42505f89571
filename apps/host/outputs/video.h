// Annotated video: boxes, numbers and trails of tracks burnt into the pictures, encoded to MP4 by ffmpeg.
#pragma once

#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "common/backoff.h"
#include "common/canvas.h"
#include "outputs/encoder.h"
#include "outputs/output.h"

namespace fleifeisa::host {

/// What stands in a corner of the picture, "gate  0:12.4  frame 125": of live cameras with the time of day in UTC.
std::string captionOf(const FrameResult& result);

/// Every answered frame is one picture at the camera's nominal rate (10 a second where it is unknown). All pictures
/// have the size of the first one; later frames of another size are fitted into it, with black beside them. What an
/// encoder that failed had is gone; the next attempt begins a new file.
class VideoOutput : public Output {
 public:
    VideoOutput(const std::string& path, const CameraInfo& camera, const FilePolicy& policy = {});
    void started(const CameraInfo& camera) override;
    void frame(const FrameResult& result) override;
    void ended(const TrackFrame& frame, TrackEnd) override { dropTrails(frame); }
    void finish() override;
    OutputState state() const override { return {!encoder_ && lost_ > 0, lost_}; }

 private:
    struct Pixel {
        int x, y;
    };
    void openEncoder();
    void encode();
    void fail();
    void sendWaiting(std::int64_t now_ns);
    void paint(const FrameResult& result);
    void annotate(const FrameResult& result);
    void dropTrails(const TrackFrame& frame);
    void extendTrails(const FrameResult& result);
    void label(Canvas& canvas, const Track& track, Pixel corner, int scale) const;
    Pixel toPicture(const FrameResult& result, int x, int y) const;

    const std::string path_;
    FilePolicy policy_;
    std::optional<Encoder> encoder_;  ///< none after a failure, until its next attempt
    Backoff retries_;
    std::uint64_t lost_ = 0;  ///< pictures
    bool raw_ = false;
    std::map<std::int64_t, std::deque<Pixel>> trails_;  ///< feet of the boxes in the picture, by track number
    std::vector<std::uint8_t> picture_;
    double rate_;                                                  ///< 0: still unknown
    std::int64_t waiting_since_ns_ = 0;                            ///< time of the picture that waits for it
    bool waiting_ = false;                                         ///< the first picture is not yet sent
    int width_ = 0, height_ = 0;                                   ///< of the picture
    int left_ = 0, top_ = 0, shown_width_ = 0, shown_height_ = 0;  ///< where in it the frame is shown
};

}  // namespace fleifeisa::host
