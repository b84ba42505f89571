#include "camera/trial.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <tuple>

#include "common/log.h"

namespace fleifeisa::host {
namespace {

constexpr std::size_t kLeastLearning = 8;
constexpr std::int64_t kApart = 950'000'000;  ///< nanoseconds between frames that are learned, as FrameRing's

double threadSeconds() {
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

/// How many tracks are seen now that were not there before; `known` follows.
std::int64_t newTracks(std::span<const Track> tracks, std::set<std::int64_t>& known) {
    std::int64_t count = 0;
    std::set<std::int64_t> living;
    for (const Track& track : tracks) {
        if (track.state == TrackState::kTentative || track.state == TrackState::kEnded) continue;
        count += known.contains(track.number) ? 0 : 1;
        living.insert(track.number);
    }
    known = std::move(living);
    return count;
}

/// As the changed camera would have cut and scaled it; what was kept smaller is not made larger again.
RgbFrame pictureOf(const KeptFrame& kept, const SourceOptions& options) {
    if (kept.planes) return kept.picture(options);
    RgbFrame picture{kept.width, kept.height, kept.bytes};
    int width = options.width, height = options.height;
    if (width == 0 && options.longest_side > 0)
        std::tie(width, height) = fittedSize(kept.width, kept.height, options.longest_side);
    if (width > 0 && (width < kept.width || height < kept.height))
        picture = {width, height, resize(kept.bytes, kept.width, kept.height, width, height)};
    maskFrame(picture, options, kept.layout.width, kept.layout.height);
    return picture;
}

}  // namespace

/// The thread's own.
class Trial::Run {
 public:
    Run(const CameraConfig& config, std::size_t learning)
        : config_(config), tracks_({config.raw_tracks, filterOf(config), static_cast<int>(learning), 1}) {
        ControlParameters control = config.control;
        control.bgframes = std::to_string(learning);
        AnalyzerSettings settings = config.analyzer;
        settings.root = root_.path();
        settings.explainer.clear();  // nobody asks it why
        writeControlFile(controlPath(settings.root, settings.device), controlText(control));
        analyzer_ = std::make_unique<AnalyzerClient>(settings);
    }

    /// One frame, there and back. @throws AnalyzerError
    void frame(const KeptFrame& kept, Output& shown, const std::function<bool()>& stopping) {
        const RgbFrame picture = pictureOf(kept, config_.source);
        if (width_ == 0) width_ = picture.width, height_ = picture.height;
        if (picture.width != width_ || picture.height != height_)
            throw AnalyzerError("the camera's frames have another size now");
        const std::string header = frameHeader(width_, height_, kept.time_ns, ++sequence_);
        analyzer_->send(std::span<const char>(header));
        analyzer_->send(std::span<const std::uint8_t>(picture.rgb));
        std::string bytes;
        const Reply reply = answer(bytes, stopping);
        if (stopping()) return;
        if (tracks_.clockWentBack(kept.time_ns)) tracks_.end(TrackEnd::kClock);
        FrameResult result;
        result.camera = config_.name;
        result.sequence = sequence_;
        result.time_ns = kept.time_ns;
        result.live = result.realtime = true;
        result.width = width_;
        result.height = height_;
        result.detection = reply.detection;
        result.objects = reply.objects;
        result.rgb = picture.rgb;
        result.request = header;
        result.reply = bytes;
        result.tracks = tracks_.frame({kept.time_ns, width_, height_, picture.rgb, reply.detection, reply.objects});
        new_tracks = newTracks(result.tracks.tracks, seen_);
        shown.frame(result);
    }

    double cpuSeconds() const { return processorSeconds(analyzer_->pid()) + threadSeconds(); }
    int width() const { return width_; }
    int height() const { return height_; }
    void end() { analyzer_->shutdown(std::chrono::milliseconds(300)); }

    std::int64_t new_tracks = 0;  ///< of the latest frame

 private:
    static FilterSettings filterOf(const CameraConfig& config) {
        FilterSettings filter = config.filter;
        filter.infrared = config.analyzer.infrared;
        filter.by_picture = config.type_by_picture;
        return filter;
    }

    Reply answer(std::string& bytes, const std::function<bool()>& stopping) {
        constexpr int kTurn = 100;  // milliseconds, after which a stop is seen
        const Clock::time_point deadline = Clock::now() + seconds(config_.answer_seconds);
        while (!stopping()) {
            while (analyzer_->nextReply(bytes)) {
                Reply reply;
                try {
                    reply = parseReply(bytes);
                } catch (const std::runtime_error& error) {
                    throw AnalyzerError(error.what());
                }
                if (reply.numbered) return reply;
            }
            if (Clock::now() > deadline) throw AnalyzerError("the analyzer gave no answer");
            std::array<pollfd, 3> items = {{{analyzer_->wantsWrite(), POLLOUT, 0},
                                            {analyzer_->wantsRead(), POLLIN, 0},
                                            {analyzer_->wantsErrors(), POLLIN, 0}}};
            if (::poll(items.data(), items.size(), kTurn) <= 0) continue;
            if (items[2].revents != 0) analyzer_->takeErrors();
            if (items[0].revents != 0) analyzer_->write();
            if (items[1].revents != 0) analyzer_->read();
        }
        analyzer_->kill();  // it may be in the middle of a frame, whose memory goes
        return {};
    }

    const CameraConfig& config_;
    PrivateRoot root_;
    std::unique_ptr<AnalyzerClient> analyzer_;
    TrackMaker tracks_;
    std::set<std::int64_t> seen_;
    std::int64_t sequence_ = 0;
    int width_ = 0, height_ = 0;
};

Trial::Trial(CameraConfig config, Output& shown) : config_(std::move(config)), shown_(shown) {
    thread_ = std::thread(&Trial::run, this);
}

Trial::~Trial() {
    stop();
    thread_.join();
}

void Trial::stop() {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    changed_.notify_all();
}

void Trial::begin(const std::deque<std::shared_ptr<const KeptFrame>>& frames, std::size_t learning) {
    const std::lock_guard lock(mutex_);
    if (state_.learning > 0) return;  // the camera was started anew: it goes on with what it has
    const std::size_t most = std::max(kLeastLearning, learning);
    learn_.assign(frames.size() > most ? frames.end() - static_cast<std::ptrdiff_t>(most) : frames.begin(),
                  frames.end());
    if (!learn_.empty()) latest_ns_ = learn_.back()->time_ns;
    state_.learning = static_cast<int>(most);
    changed_.notify_all();
}

/// Frames that it learns are a second apart; then as many as its own rate lets pass. mutex_ is held.
bool Trial::wanted(const KeptFrame& frame) {
    const bool learning = state_.learned + static_cast<int>(learn_.size()) < state_.learning;
    const double rate = config_.source.rate;
    // A tenth less, so that a camera that is itself this fast loses none to jitter.
    const std::int64_t apart = learning ? kApart : rate > 0 ? static_cast<std::int64_t>(0.9e9 / rate) : 0;
    if (latest_ns_ != INT64_MIN && frame.time_ns > latest_ns_ && frame.time_ns - latest_ns_ < apart) return false;
    latest_ns_ = frame.time_ns;
    return true;
}

void Trial::add(std::shared_ptr<const KeptFrame> frame, const FrameResult& result) {
    const std::lock_guard lock(mutex_);
    const std::int64_t live = newTracks(result.tracks.tracks, live_seen_);
    if (state_.settled) state_.live_tracks += live;
    if (state_.learning == 0 || !state_.trouble.empty() || !wanted(*frame)) return;
    if (state_.learned + static_cast<int>(learn_.size()) < state_.learning) {
        learn_.push_back(std::move(frame));
    } else {
        waiting_.push_back(std::move(frame));
        if (waiting_.size() > kMostWaiting) {
            waiting_.pop_front();
            ++state_.left_out;
        }
    }
    changed_.notify_all();
}

TrialState Trial::state() const {
    const std::lock_guard lock(mutex_);
    return state_;
}

void Trial::run() {
    std::unique_ptr<Run> trial;
    const auto stopping = [this] {
        const std::lock_guard lock(mutex_);
        return stopping_;
    };
    double cpu_before = 0;
    std::int64_t first_ns = 0;
    Clock::time_point began{};
    try {
        while (true) {
            std::shared_ptr<const KeptFrame> frame;
            bool learns = false;
            {
                std::unique_lock lock(mutex_);
                changed_.wait(lock, [this] { return stopping_ || !learn_.empty() || !waiting_.empty(); });
                if (stopping_) break;
                learns = !learn_.empty();
                auto& from = learns ? learn_ : waiting_;
                frame = std::move(from.front());
                from.pop_front();
                if (learns) ++state_.learned;
            }
            if (!trial) trial = std::make_unique<Run>(config_, static_cast<std::size_t>(state().learning));
            trial->frame(*frame, shown_, stopping);
            const std::lock_guard lock(mutex_);
            state_.width = trial->width();
            state_.height = trial->height();
            if (learns) continue;
            if (state_.frames++ == 0) first_ns = frame->time_ns;
            if (!state_.settled) {
                if (frame->time_ns - first_ns < kSettleNs) continue;
                state_.settled = true;
                state_.left_out = 0;
                cpu_before = trial->cpuSeconds();
                first_ns = frame->time_ns;
                began = Clock::now();
                continue;
            }
            state_.tracks += trial->new_tracks;
            state_.seconds = static_cast<double>(frame->time_ns - first_ns) / 1e9;
            state_.cpu_seconds = trial->cpuSeconds() - cpu_before;
            state_.wall_seconds = Seconds(Clock::now() - began).count();
        }
    } catch (const std::exception& error) {
        logWarning(config_.name, std::string("trial: ") + error.what());
        const std::lock_guard lock(mutex_);
        state_.trouble = error.what();
        learn_.clear();
        waiting_.clear();
    }
    if (trial) trial->end();
    shown_.finish();
}

}  // namespace fleifeisa::host
