#include "camera/frame_ring.h"

#include <algorithm>

namespace fleifeisa::host {
namespace {

// One a second, so that whoever walks through is in few of them; a little less, so that a source of one a second, with
// jitter, loses none.
constexpr std::int64_t kApart = 950'000'000;

}  // namespace

RgbFrame KeptFrame::picture(const SourceOptions& options) const {
    RgbFrame result{width, height, {}};
    if (planes) {
        RawFrame frame{layout, bytes, time_ns, 0};
        std::vector<std::uint8_t> none;
        return toRgbFrame(frame, options, none);
    }
    result.rgb = bytes;
    maskFrame(result, options, layout.width, layout.height);
    return result;
}

RgbFrame toRgbFrame(RawFrame& frame, const SourceOptions& options, std::vector<std::uint8_t>& spare,
                    std::shared_ptr<KeptFrame>* keep) {
    if (keep == nullptr) return toRgbFrame(frame, options, spare);
    auto kept = std::make_shared<KeptFrame>();
    kept->time_ns = frame.time_ns;
    kept->layout = frame.layout;
    const std::vector<std::uint8_t> source =
        frame.layout.format.name == "rgb24" ? std::vector<std::uint8_t>() : frame.bytes;
    RgbFrame picture = toUnmaskedFrame(frame, options, spare);
    kept->width = picture.width;
    kept->height = picture.height;
    kept->planes = !source.empty() && source.size() <= picture.rgb.size();
    kept->bytes = kept->planes ? source : picture.rgb;
    maskFrame(picture, options, frame.layout.width, frame.layout.height);
    *keep = std::move(kept);
    return picture;
}

bool FrameRing::due(std::int64_t time_ns) {
    if (most_ == 0 || (latest_ns_ && time_ns >= *latest_ns_ && time_ns - *latest_ns_ < kApart)) return false;
    latest_ns_ = time_ns;
    return true;
}

void FrameRing::add(std::shared_ptr<const KeptFrame> frame) {
    if (most_ == 0 || frame->bytes.empty()) return;
    if (!frames_.empty() && (frames_.back()->width != frame->width || frames_.back()->height != frame->height))
        frames_.clear();
    capacity_ = std::min(most_, kMostBytes / frame->bytes.size());
    frames_.push_back(std::move(frame));
    while (frames_.size() > *capacity_) frames_.pop_front();
}

void FrameRing::forgetBefore(std::int64_t time_ns) {
    std::erase_if(frames_, [time_ns](const auto& frame) { return frame->time_ns < time_ns; });
}

}  // namespace fleifeisa::host
