#include "recorder/segment_maker.h"

#include <algorithm>
#include <array>
#include <utility>

namespace fleifeisa::host {

void SegmentMaker::begin(std::int64_t run) {
    end();
    reader_.emplace([this](TsPacket bytes, const TsPicture* picture) { packet(bytes, picture); });
    run_ = run;
    number_ = 0;
    begun_ = false;
    frames_.clear();
    latest_frame_ = INT64_MIN;
}

void SegmentMaker::packets(std::span<const std::uint8_t> bytes) {
    if (reader_) reader_->read(bytes);
}

bool SegmentMaker::endsBefore(const TsPicture& picture) const {
    if (current_.head.pictures.empty()) return false;
    // By decoding times: they rise, and a jump backward or far ahead is no reason to collect for ever.
    const std::int64_t length = picture.dts - current_.head.pictures.front().dts;
    if (picture.key && length >= kSegment) return true;
    return length >= kLongestPart || length < 0 || current_.packets.size() > kMostBytes;
}

void SegmentMaker::packet(TsPacket original, const TsPicture* begins) {
    std::array<std::uint8_t, kTsPacket> packet;
    std::ranges::copy(original, packet.begin());
    std::optional<TsPicture> picture;
    if (begins) picture = *begins;
    if (picture && change_) change_(packet, *picture);
    if (picture) {
        if (!begun_ && !picture->key) return;
        begun_ = true;
        if (endsBefore(*picture)) close();
        if (current_.tables.empty()) current_.tables.assign(reader_->tables().begin(), reader_->tables().end());
        current_.head.pictures.push_back(
            {picture->pts, picture->dts, kNoTime, static_cast<std::uint32_t>(current_.packets.size()), picture->key});
    }
    // Sound before the first picture belongs to none, and without pictures nothing bounds a part but this.
    if (current_.head.pictures.empty() || current_.packets.size() > 2 * kMostBytes) return;
    current_.packets.insert(current_.packets.end(), packet.begin(), packet.end());
}

void SegmentMaker::close() {
    if (current_.head.pictures.empty()) return;
    current_.head.run = run_;
    current_.head.number = number_++;
    waiting_.push_back(std::exchange(current_, {}));
    if (waiting_.size() > kMostWaiting || waiting_.front().head.lastPts() <= latest_frame_ + kSame) handOn();
}

void SegmentMaker::frame(std::int64_t pts, std::int64_t time_ns) {
    if (!reader_) return;
    frames_[pts] = time_ns;
    if (frames_.size() > kMostFrames) frames_.erase(frames_.begin());
    latest_frame_ = std::max(latest_frame_, pts);
    while (!waiting_.empty() && waiting_.front().head.lastPts() <= latest_frame_ + kSame) handOn();
}

void SegmentMaker::end() {
    if (!reader_) return;
    close();
    while (!waiting_.empty()) handOn();
    reader_.reset();
}

void SegmentMaker::handOn() {
    Segment segment = std::move(waiting_.front());
    waiting_.pop_front();
    giveTimes(segment);
    // Without any time it is of no moment: what a file read again has shown already, or what nobody could decode.
    if (segment.head.startNs() != kNoTime) ready_(std::move(segment));
}

void SegmentMaker::giveTimes(Segment& segment) {
    for (SegmentPicture& each : segment.head.pictures) {
        const auto frame = frames_.lower_bound(each.pts - kSame);
        if (frame == frames_.end() || frame->first > each.pts + kSame) continue;
        each.time_ns = frame->second;
        frames_.erase(frame);
    }
}

}  // namespace fleifeisa::host
