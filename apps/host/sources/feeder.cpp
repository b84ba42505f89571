#include "sources/feeder.h"

#include <poll.h>
#include <sysexits.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

#include "common/log.h"
#include "common/secrets.h"
#include "common/text.h"

namespace fleifeisa::host {
namespace {

constexpr std::size_t kHeld = 2;  // frames of a file read ahead
constexpr Backoff::Limits kLimits = {0.5, 30, std::chrono::seconds(10)};
constexpr int kFileRetries = 3;  // in a row without a frame

std::int64_t wallClock() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

LiveClock::Reading readClocks() {
    return {wallClock(), std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count()};
}

}  // namespace

Feeder::Feeder(std::string camera, SourceOptions options, std::shared_ptr<PacketSink> packets)
    : camera_(std::move(camera)),
      options_(std::move(options)),
      live_(isLive(options_)),
      packets_(std::move(packets)),
      grid_(options_.rate),
      backoff_(kLimits) {
    learnSecretsOf(options_.source);
}

Feeder::~Feeder() {
    join();
}

void Feeder::join() {
    stop();
    if (thread_.joinable()) thread_.join();
}

void Feeder::start() {
    thread_ = std::thread(&Feeder::run, this);
}

void Feeder::stop() {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    stop_.set();
    room_.notify_all();
}

bool Feeder::take(RawFrame& frame, std::int64_t& dropped) {
    const std::lock_guard lock(mutex_);
    if (frames_.empty()) {
        if (!ended_) ready_.clear();  // it told of an outage
        return false;
    }
    frame = std::move(frames_.front());
    frames_.pop_front();
    dropped = std::exchange(dropped_, 0);
    if (frames_.empty() && !ended_) ready_.clear();
    room_.notify_all();
    return true;
}

void Feeder::recycle(std::vector<std::uint8_t> bytes) {
    const std::lock_guard lock(mutex_);
    if (spare_.size() < kHeld) spare_.push_back(std::move(bytes));
}

bool Feeder::ended() const {
    const std::lock_guard lock(mutex_);
    return ended_ && frames_.empty();
}

int Feeder::exitCode() const {
    const std::lock_guard lock(mutex_);
    return code_;
}

std::int64_t Feeder::expectedFrames() const {
    const std::lock_guard lock(mutex_);
    return expected_;
}

double Feeder::rate() const {
    const std::lock_guard lock(mutex_);
    return rate_;
}

int Feeder::outages() const {
    const std::lock_guard lock(mutex_);
    return outages_;
}

std::int64_t Feeder::now() const {
    const std::lock_guard lock(mutex_);
    return clock_.now(readClocks());
}

bool Feeder::holds() const {
    const std::lock_guard lock(mutex_);
    return !frames_.empty();
}

void Feeder::noteOutage() {
    const std::lock_guard lock(mutex_);
    ++outages_;
    ready_.set();
}

std::string Feeder::trouble() const {
    const std::lock_guard lock(mutex_);
    return trouble_;
}

/// Waits; false when the stop came first.
bool Feeder::waitUntil(Clock::time_point when) const {
    pollfd item{stop_.fd(), POLLIN, 0};
    while (Clock::now() < when)
        if (::poll(&item, 1, pollTimeout(when)) > 0) return false;
    return true;
}

void Feeder::deliver(RawFrame&& frame) {
    std::unique_lock lock(mutex_);
    if (live_) {
        dropped_ += static_cast<std::int64_t>(frames_.size());
        for (const RawFrame& replaced : frames_) clock_step_ns_ += replaced.clock_step_ns;
        frames_.clear();
    } else {
        room_.wait(lock, [this] { return frames_.size() < kHeld || stopping_; });
        if (stopping_) return;
    }
    frame.clock_step_ns = std::exchange(clock_step_ns_, 0);
    frames_.push_back(std::move(frame));
    ready_.set();
}

/// Waits for a frame's moment where that is asked for, and gives frames of live sources their time. False on a stop.
bool Feeder::inTime(RawFrame& frame) {
    // What no decoder delivers comes as fast as it is asked for, also where it is to be taken for a camera.
    const bool paced = (live_ && isSynthetic(options_)) || (options_.realtime && !isCameraSource(options_));
    if (paced) {
        const std::chrono::nanoseconds offset(frame.time_ns);
        if (begin_ == Clock::time_point{}) begin_ = Clock::now() - offset;
        if (!waitUntil(begin_ + offset)) return false;
    }
    if (!live_) {
        frame.time_ns += options_.start_time_ns.value_or(0);
        return true;
    }
    const std::lock_guard lock(mutex_);
    const LiveClock::Moment moment = clock_.ofFrame(readClocks());
    frame.time_ns = moment.time_ns;
    clock_step_ns_ += moment.step_ns;
    if (moment.step_ns != 0) grid_.restart();
    return true;
}

void Feeder::noteProgress(const Source& source) {
    retries_ = 0;
    if (!failing_since_.empty()) {
        logInfo(camera_, "frames come again");
        failing_since_.clear();
    }
    const std::lock_guard lock(mutex_);
    trouble_.clear();
    const double share = options_.rate > 0 && source.rate() > options_.rate ? options_.rate / source.rate() : 1;
    expected_ = options_.loop ? 0 : std::llround(static_cast<double>(source.expectedFrames()) * share);
    if (options_.frames > 0) expected_ = expected_ == 0 ? options_.frames : std::min(expected_, options_.frames);
    rate_ = options_.rate > 0 ? options_.rate : source.rate();
}

RawFrame Feeder::emptyFrame() {
    RawFrame frame;
    const std::lock_guard lock(mutex_);
    if (spare_.empty()) return frame;
    frame.bytes = std::move(spare_.front());
    spare_.pop_front();
    return frame;
}

void Feeder::noteWarnings(Source& source) {
    for (const std::string& text : source.takeWarnings()) logWarning(camera_, text);
}

/// Opens the source and reads it to its end.
Feeder::Outcome Feeder::readOnce() {
    Outcome outcome = Outcome::kEnded;
    try {
        const auto source = openSource(options_, stop_, packets_.get());
        const std::int64_t skip = live_ ? 0 : delivered_;
        if (live_) begin_ = {};
        RawFrame frame;
        for (std::int64_t number = 0; outcome == Outcome::kEnded && source->next(frame); ++number) {
            noteWarnings(*source);
            if (number < skip) continue;
            ++delivered_;
            const std::int64_t run_ns = frame.time_ns;
            frame.time_ns += loop_offset_ns_;
            last_time_ns_ = frame.time_ns;
            if (!inTime(frame)) return Outcome::kStopped;
            if (packets_) packets_->frame(run_ns, frame.time_ns);
            if (!grid_.takes(frame.time_ns)) continue;
            noteProgress(*source);
            deliver(std::move(frame));
            if (options_.frames > 0 && ++handed_on_ >= options_.frames) outcome = Outcome::kEnough;
            frame = emptyFrame();
        }
        noteWarnings(*source);
        if (const std::string text = source->complaints(); !text.empty()) {
            logWarning(camera_, text);
            damaged_ = true;
        }
    } catch (const SourceError& error) {
        failure_ = error;
        return Outcome::kFailed;
    }
    const std::lock_guard lock(mutex_);
    return stopping_ ? Outcome::kStopped : outcome;
}

void Feeder::finish(int code) {
    const std::lock_guard lock(mutex_);
    code_ = code;
    ended_ = true;
    ready_.set();
}

bool Feeder::waitAfterFailure(const std::string& why, bool worked) {
    const Clock::time_point now = Clock::now();
    const double delay = backoff_.failed(now, worked);
    const bool first = failing_since_.empty();
    if (first) failing_since_ = rfc3339(wallClock()).substr(0, 19) + "Z";
    std::array<char, 80> every{};
    std::snprintf(every.data(), every.size(), "failing since %s, retried every %g s: ", failing_since_.c_str(), delay);
    {
        const std::lock_guard lock(mutex_);
        trouble_ = every.data() + withoutSecrets(why);
    }
    if (first) {
        std::snprintf(every.data(), every.size(), "; opening it again in %g s", delay);
        logWarning(camera_, why + every.data());
    } else {
        logWarning(camera_, every.data() + why);
    }
    return waitUntil(backoff_.nextTry());
}

/// The next round of a file that plays for ever.
void Feeder::beginAnew() {
    loop_offset_ns_ = last_time_ns_ + (rate_ > 0 ? static_cast<std::int64_t>(1e9 / rate_) : 100'000'000);
    delivered_ = 0;
}

/// After a failure. A decoder that died says nothing against the file, and what plays for ever is tried for ever; but
/// what has never given a frame, without any such accident, never will.
bool Feeder::readFileAgain() {
    if (options_.loop && last_time_ns_ >= 0) return true;
    return failure_.transient && retries_++ < kFileRetries;
}

void Feeder::run() {
    for (;;) {
        backoff_.began(Clock::now());
        const std::int64_t before = delivered_;
        const Outcome outcome = readOnce();
        if (outcome == Outcome::kStopped) return finish(0);
        if (outcome == Outcome::kFailed && failure_.code == EX_USAGE) {  // no second try makes it right
            logError(camera_, failure_.what());
            return finish(failure_.code);
        }
        // A file in place of a camera: its next round is no outage.
        if (live_ && options_.loop && outcome == Outcome::kEnded && delivered_ > before && !isCameraSource(options_))
            continue;
        if (live_ && outcome != Outcome::kEnough) {
            const std::string why = outcome == Outcome::kEnded ? "the source ended" : failure_.what();
            noteOutage();
            if (!waitAfterFailure(why, delivered_ > before)) return finish(0);
        } else if (outcome == Outcome::kFailed) {
            if (!readFileAgain()) {
                logError(camera_, failure_.what());
                return finish(failure_.code);
            }
            // Where it fails at the same frame again, the rest of this round is given up.
            if (options_.loop && delivered_ == before && delivered_ > 0) beginAnew();
            const std::string from = "; reading goes on with frame " + std::to_string(delivered_ + 1);
            if (!waitAfterFailure(failure_.what() + from, delivered_ > before)) return finish(0);
        } else if (outcome == Outcome::kEnough || !options_.loop || delivered_ == 0) {
            return finish(damaged_ && !live_ ? EX_DATAERR : 0);
        } else {
            beginAnew();
        }
    }
}

}  // namespace fleifeisa::host
