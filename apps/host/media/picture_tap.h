// A camera's way to its pictures: chooses the frames that are worth one, on the camera's thread.
#pragma once

#include <map>
#include <set>

#include "media/picture_desk.h"

namespace fleifeisa::host {

class PictureTap : public Output {
 public:
    PictureTap(PictureMaker& desk, std::string camera) : desk_(desk), camera_(std::move(camera)) {}

    void frame(const FrameResult& result) override;
    void ended(const TrackFrame& frame, TrackEnd) override { forgetEnded(frame); }
    void ruled(const RuleResults& results) override;
    void finish() override;

 private:
    struct Sent {
        double score = 0;
        std::int64_t time_ns = 0;
    };
    std::vector<Candidate> candidates(const FrameResult& result) const;
    bool tileDue(const FrameResult& result) const;
    void closeWhatIsOver(std::int64_t time_ns);
    void forgetEnded(const TrackFrame& frame);

    PictureMaker& desk_;
    const std::string camera_;
    std::map<std::int64_t, Sent> sent_;     ///< the best view so far, by track
    std::set<std::int64_t> running_;        ///< events
    std::int64_t tile_ns_ = INT64_MIN / 2;  ///< time of the latest
    std::int64_t busy_until_ns_ = 0;        ///< what comes until then belongs to an event that ended, 0: none did
    std::int64_t now_ns_ = 0;               ///< of the latest frame
    bool wanted_ = false;                   ///< an event without a track wants the next frame
    bool may_wait_ = false;                 ///< the source waits for nobody's clock
};

}  // namespace fleifeisa::host
