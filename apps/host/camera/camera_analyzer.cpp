// A camera's analyzer: started, asked, answered, replaced when it dies or hangs.
#include <sysexits.h>

#include <algorithm>

#include "camera/camera.h"
#include "common/log.h"

namespace fleifeisa::host {
namespace {

// A stop takes no longer than this and the time an analyzer is given to end (kShutdownGrace) together, so that a
// service ends within three seconds whatever hangs.
constexpr Clock::duration kStopGrace = std::chrono::seconds(1);  // for the answer to the frame in work
constexpr int kGiveUp = 7;    // analyzers in a row without an answer; a live camera never gives up
constexpr int kAttempts = 3;  // a frame over which so many analyzers die is given up

}  // namespace

void Camera::startAnalyzer() {
    try {
        analyzer_ = std::make_unique<AnalyzerClient>(config_.analyzer);
    } catch (const AnalyzerError& error) {
        analyzerFailed(error.what());
        return;
    }
    root_.reset();
    idle_.wake();
    waiting_since_ = Clock::now();
    restarts_.began(waiting_since_);
    width_ = height_ = 0;
    unannounced_ = true;
    for (Request& request : in_flight_) sendRequest(request);
}

/// In the place of one that works; it learns the scene anew.
void Camera::startFresh() {
    if (analyzer_) analyzer_->shutdown(kShutdownGrace);
    analyzer_.reset();
    hand_over_.reset();
    place_.reset();
    if (coming_ && !change_) change_ = std::move(coming_);
    coming_.reset();
    startAnalyzer();
}

/// The outputs hear of an analyzer when it gets its first frame: some sources know their rate no earlier.
void Camera::sendRequest(Request& request) {
    if (std::exchange(unannounced_, false)) announce(request.map);
    width_ = request.width;
    height_ = request.height;
    analyzer_->send(std::span<const char>(request.header));
    analyzer_->send(std::span<const std::uint8_t>(request.rgb));
}

void Camera::takeReplies() {
    std::string bytes;
    while (analyzer_->nextReply(bytes)) handleReply(bytes);
}

void Camera::handleReply(const std::string& bytes) {
    Reply reply;
    try {
        reply = parseReply(bytes);
    } catch (const std::runtime_error& error) {
        throw AnalyzerError(error.what());
    }
    if (!reply.numbered) {  // at the start; a missing control file is reported here and means the defaults
        if (!reply.ok) logInfo(config_.name, "the analyzer reports: " + reply.status_text);
        return;
    }
    if (!reply.ok) logWarning(config_.name, "the analyzer answered: " + reply.status_text);
    if (in_flight_.empty() || reply.sequence != in_flight_.front().sequence)
        throw AnalyzerError("the analyzer answered a frame that it was not sent");
    const FrameResult result = resultOf(in_flight_.front(), reply, bytes);
    idle_.answered(showsNothing(reply, result.tracks));
    callOutputs([&result](Output& output) { output.frame(result); });
    if (recorder_)
        recorder_->seen(result.rgb, result.width, result.height, result.time_ns, feeder_.live(), feeder_.rate());
    keepTracks(result.tracks, true);
    why_.answered(result);
    if (tracks_) next_.track = tracks_->settings().first_number;
    judged_ = &result;
    rules_->frame(result.tracks);
    judged_ = nullptr;
    ++counts_.answered;
    if (reply.detection) ++counts_.detected;
    failures_in_a_row_ = 0;
    warm_up_failed_ = false;
    keep(in_flight_.front(), result);
    if (spare_rgb_.empty())
        spare_rgb_ = std::move(in_flight_.front().rgb);
    else
        feeder_.recycle(std::move(in_flight_.front().rgb));
    in_flight_.pop_front();
    waiting_since_ = Clock::now();
}

/// When the oldest request's time is up. A stop does not wait as long as a running camera.
Clock::time_point Camera::answerDeadline() const {
    const Clock::time_point usual = waiting_since_ + seconds(config_.answer_seconds);
    if (!stopping_) return usual;
    return std::min(usual, Clock::time_point(Clock::duration(stopped_at_)) + kStopGrace);
}

void Camera::checkAnswerTime() {
    if (in_flight_.empty() || Clock::now() < answerDeadline()) return;
    if (stopping_) throw AnalyzerError("the analyzer gave no answer to the frame in work and was killed");
    char text[96];
    std::snprintf(text, sizeof text, "the analyzer gave no answer for %g s and was killed", config_.answer_seconds);
    throw AnalyzerError(text);
}

/// Frames of a file are kept and sent again; a live frame is history by then.
void Camera::analyzerFailed(const std::string& why) {
    std::string reason = why;
    const bool ran = analyzer_ != nullptr;
    if (analyzer_)
        if (const std::string words = analyzer_->lastWords(); !words.empty())
            reason += " (it last said: " + words + ")";
    analyzer_.reset();
    if (stopping_) {
        counts_.lost += static_cast<std::int64_t>(in_flight_.size());
        in_flight_.clear();
        logWarning(config_.name, reason);
        return;
    }
    const std::int64_t lost = giveUpFrames();
    if (!feeder_.live() && ++failures_in_a_row_ >= kGiveUp) {
        logError(config_.name,
                 reason + "; that was the " + std::to_string(kGiveUp) + "th in a row, the camera is given up");
        counts_.lost += static_cast<std::int64_t>(in_flight_.size());
        in_flight_.clear();
        given_up_ = true;
        exit_code_ = EX_UNAVAILABLE;
        tellRules(EventKind::kAnalyzer, "given-up", reason);
        return;
    }
    ++counts_.restarts;
    tellRules(EventKind::kAnalyzer, "restarted", reason);
    const double delay = restarts_.failed(Clock::now(), ran);
    char text[96];
    std::snprintf(text, sizeof text, "; a new one starts in %g s (frames lost: %lld)", delay,
                  static_cast<long long>(lost));
    logWarning(config_.name, reason + text);
}

/// After a death: live frames are lost, and so is a file's frame over which too many analyzers have died. Their numbers
/// are used again, and the next frame's `dropped` counts them.
std::int64_t Camera::giveUpFrames() {
    std::int64_t lost = 0;
    if (feeder_.live()) {
        lost = static_cast<std::int64_t>(in_flight_.size());
        for (const Request& request : in_flight_) {
            lost_untold_ += 1 + request.dropped;
            idle_.answered(false);
        }
        in_flight_.clear();
    } else if (!in_flight_.empty() && ++in_flight_.front().attempts >= kAttempts) {
        logError(config_.name, "frame " + std::to_string(in_flight_.front().sequence) +
                                   " is given up: " + std::to_string(kAttempts) + " analyzers died over it");
        lost_untold_ += 1 + in_flight_.front().dropped;
        in_flight_.pop_front();
        idle_.answered(false);
        for (Request& request : in_flight_)
            request.header = frameHeader(request.width, request.height, request.time_ns, --request.sequence);
        lost = 1;
        exit_code_ = EX_SOFTWARE;
    }
    counts_.lost += lost;
    last_sequence_ -= lost;
    return lost;
}

}  // namespace fleifeisa::host
