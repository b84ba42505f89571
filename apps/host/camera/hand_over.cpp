#include "camera/hand_over.h"

#include <poll.h>

#include <array>
#include <atomic>

#include "analyzer/control_file.h"
#include "analyzer/reply.h"
#include "common/log.h"

namespace fleifeisa::host {
namespace {

constexpr std::size_t kWindow = 2;  // frames under way: one in work, one in the pipe

std::atomic<int> learners{0};

}  // namespace

std::unique_ptr<LearnersPlace> LearnersPlace::take() {
    if (learners.fetch_add(1) < kPlaces) return std::unique_ptr<LearnersPlace>(new LearnersPlace);
    --learners;
    return nullptr;
}

LearnersPlace::~LearnersPlace() {
    --learners;
}

HandOver::HandOver(AnalyzerSettings settings, const std::string& control,
                   const std::deque<std::shared_ptr<const KeptFrame>>& learn, const SourceOptions& masks)
    : learning_(learn.size()),
      masks_(masks),
      control_(control),
      root_(std::make_unique<PrivateRoot>()),
      waiting_(learn) {
    settings.root = root_->path();
    writeControlFile(controlPath(settings.root, settings.device), control_);
    analyzer_ = std::make_unique<AnalyzerClient>(settings);
}

void HandOver::add(std::shared_ptr<const KeptFrame> frame) {
    waiting_.push_back(std::move(frame));
    if (frames_.size() >= learning_ && waiting_.size() > kWindow) waiting_.pop_front();
}

void HandOver::sendNext() {
    const KeptFrame& kept = *waiting_.front();
    WarmUp& frame = frames_.emplace_back();
    frame.picture = kept.picture(masks_);
    frame.time_ns = kept.time_ns;
    frame.header = frameHeader(frame.picture.width, frame.picture.height, kept.time_ns, kept.sequence);
    waiting_.pop_front();
    if (frames_.size() - answered_ == 1) heard_ = Clock::now();
    analyzer_->send(std::span<const char>(frame.header));
    analyzer_->send(std::span<const std::uint8_t>(frame.picture.rgb));
}

void HandOver::turn() {
    while (!waiting_.empty() && frames_.size() - answered_ < kWindow) sendNext();
    std::array<pollfd, 3> items = {{{wantsWrite(), POLLOUT, 0}, {wantsRead(), POLLIN, 0}, {wantsErrors(), POLLIN, 0}}};
    if (::poll(items.data(), items.size(), 0) <= 0) return;
    if (items[2].revents != 0) analyzer_->takeErrors();
    if (items[0].revents != 0) analyzer_->write();
    if (items[1].revents != 0) analyzer_->read();
    std::string bytes;
    while (analyzer_->nextReply(bytes)) {
        Reply reply;
        try {
            reply = parseReply(bytes);
        } catch (const std::runtime_error& error) {
            throw AnalyzerError(error.what());
        }
        if (!reply.numbered) continue;
        if (answered_ == frames_.size()) throw AnalyzerError("the analyzer answered a frame that it was not sent");
        frames_[answered_++].reply = bytes;
        heard_ = Clock::now();
        if (answered_ == learning_) learned_ = heard_;
    }
    while (!waiting_.empty() && frames_.size() - answered_ < kWindow) sendNext();
}

}  // namespace fleifeisa::host
