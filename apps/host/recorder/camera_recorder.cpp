#include "recorder/camera_recorder.h"

#include "common/log.h"
#include "recorder/recorder.h"

namespace fleifeisa::host {
namespace {

/// As in the copy of the packets, to the nearest tick.
std::int64_t ticksOf(std::int64_t run_ns) {
    constexpr std::int64_t kTickNumerator = 9, kTickDenominator = 100'000;  // 90,000 ticks are 10^9 ns
    const std::int64_t scaled = run_ns / kTickDenominator * kTickNumerator +
                                (run_ns % kTickDenominator * kTickNumerator + kTickDenominator / 2) / kTickDenominator;
    return scaled + kPacketOffsetSeconds * kTicksPerSecond;
}

}  // namespace

CameraRecorder::CameraRecorder(Recorder& recorder, std::string camera, const ClipSettings& settings)
    : recorder_(recorder),
      camera_(std::move(camera)),
      settings_(settings),
      maker_([this](Segment segment) { recorder_.take(camera_, std::move(segment)); }) {}

CameraRecorder::~CameraRecorder() {
    ended();
}

PacketCopy CameraRecorder::wanted() const {
    if (useless_ || settings_.as_seen || !settings_.record.empty()) return PacketCopy::kNone;
    return settings_.sound ? PacketCopy::kVideoAndSound : PacketCopy::kVideo;
}

void CameraRecorder::began() {
    ended();
    run_ = recorder_.begin(camera_);
    noted_ = false;
    maker_.begin(run_);
}

bool CameraRecorder::codec(std::string_view name) {
    useless_ = copying_failed_ || (name != "h264" && name != "hevc");
    return !useless_;
}

void CameraRecorder::packets(std::span<const std::uint8_t> bytes) {
    maker_.packets(bytes);
}

void CameraRecorder::frame(std::int64_t run_ns, std::int64_t time_ns) {
    if (!maker_.running()) return;
    if (!std::exchange(noted_, true)) recorder_.note(camera_, run_, time_ns);
    maker_.frame(ticksOf(run_ns), time_ns);
}

void CameraRecorder::ended() {
    if (!maker_.running()) return;
    maker_.end();
    recorder_.end(camera_, run_);
}

void CameraRecorder::failed(const std::string& why) {
    logWarning(camera_, "its video cannot be kept as it comes: " + why);
    useless_ = copying_failed_ = true;
}

void CameraRecorder::seen(std::span<const std::uint8_t> rgb, int width, int height, std::int64_t time_ns, bool live,
                          double rate) {
    if (!settings_.record.empty() || !(useless_ || settings_.as_seen)) return;
    if (!encoder_) encoder_ = std::make_unique<FrameEncoder>(recorder_, camera_, live, rate);
    encoder_->frame(rgb, width, height, time_ns);
}

void CameraRecorder::finish() {
    encoder_.reset();
}

void CameraRecorder::events(const RuleResults& results) {
    for (const CameraEvent& event : results.events) recorder_.event(event);
}

}  // namespace fleifeisa::host
