// A camera's changes: what a new analyzer brings, when it takes over, and what happens where none can.
#include <algorithm>

#include "camera/camera.h"
#include "common/log.h"

namespace fleifeisa::host {
namespace {

// From fewer frames an analyzer learns whoever walks through: better to learn anew than to be half blind.
constexpr std::size_t kFewestFrames = 8;
constexpr Clock::duration kOldAnalyzerGrace = std::chrono::milliseconds(300);
// A live camera is held back until the new analyzer has answered its last frames, but no longer than this.
constexpr Clock::duration kPatience = std::chrono::milliseconds(500);

}  // namespace

bool CameraConfig::sameCamera(const CameraConfig& other) const {
    CameraConfig same = other;
    same.control = control;
    same.rules = rules;
    same.notify_from_ns = notify_from_ns;
    if (handsOver() && other.handsOver()) {
        same.analyzer.infrared = analyzer.infrared;
        same.type_by_picture = type_by_picture;
        same.profile = profile;
        same.filter = filter;
        same.source.masks = source.masks;
    }
    return same == *this;
}

void Camera::change(const CameraConfig& config) {
    const std::lock_guard lock(mutex_);
    new_config_ = config;
    wake_.set();
}

/// What is in force once everything that is wanted has come.
const CameraConfig& Camera::latestConfig() const {
    return change_ ? change_->config : coming_ ? coming_->config : config_;
}

/// A ring that holds too few frames, because they are large, serves nobody.
bool Camera::mayHandOver() const {
    return config_.handsOver() && ring_.capacity() >= kFewestFrames;
}

void Camera::takeChange() {
    std::optional<CameraConfig> wanted;
    {
        const std::lock_guard lock(mutex_);
        wanted = std::exchange(new_config_, std::nullopt);
        if (!stopping_) wake_.clear();
    }
    if (wanted) {
        if (wanted->type_by_picture) wanted->analyzer.infrared = latestConfig().analyzer.infrared;
        const bool new_picture = wanted->source.masks != latestConfig().source.masks ||
                                 wanted->analyzer.infrared != latestConfig().analyzer.infrared;
        const bool seamless = wanted->handsOver() && mayHandOver() && width_ != 0;
        if (seamless)
            want("parameters", *wanted, new_picture);
        else
            in_place_ = std::move(wanted);
    }
    if (in_place_ && in_flight_.empty()) changeInPlace(*std::exchange(in_place_, std::nullopt));
}

void Camera::takeTaps() {
    std::optional<std::vector<std::shared_ptr<FrameTap>>> taps;
    {
        const std::lock_guard lock(mutex_);
        taps = std::exchange(new_taps_, std::nullopt);
    }
    if (!taps) return;
    for (const auto& tap : *taps)
        if (std::ranges::count(taps_, tap) == 0)
            tap->begin(ring_.frames(), ring_.most() > 0 ? ring_.capacity() : static_cast<std::size_t>(config_.warm_up));
    taps_ = std::move(*taps);
}

/// @param config  what is to be in force, apart from what nobody can change while it runs
void Camera::want(const std::string& why, const CameraConfig& config, bool new_picture) {
    if (!change_) change_.emplace(Change{config, why, new_picture});
    change_->config = config;
    if (new_picture) change_->why = why;
    change_->new_picture |= new_picture;
    if (!ring_.full() && !coming_)
        logInfo(config_.name, change_->why + ": a new analyzer takes over when the latest " +
                                  std::to_string(ring_.capacity()) + " s of the picture are known");
}

/// The control file changes between two frames, and the analyzer learns anew.
void Camera::changeInPlace(const CameraConfig& config) {
    const bool same_analyzer = !root_ && config.analyzer == config_.analyzer && config.source == config_.source &&
                               config.filter == config_.filter;
    adopt(config);
    change_.reset();
    try {
        const std::string text = controlText(config_.control);
        const bool written = writeControlFile(controlPath(config_.analyzer.root, config_.analyzer.device), text);
        if (written && same_analyzer) {
            logInfo(config_.name, "new control parameters, the background is learnt anew");
            // Outputs that are still to hear of the analyzer hear of these with it.
            if (!unannounced_) callOutputs([&text](Output& output) { output.controlChanged(text); });
        }
        if (written || !same_analyzer) noteParameters();
    } catch (const std::system_error& error) {
        logError(config_.name, std::string("control file: ") + error.what());
    }
    if (same_analyzer) return;
    logInfo(config_.name, "new parameters: a new analyzer learns the scene anew");
    ring_.clear();
    endTracks(TrackEnd::kSource);
    if (tracks_) {
        finishRules("configuration");
        tracks_.reset();
    }
    startFresh();
}

void Camera::adopt(const CameraConfig& config) {
    config_.control = config.control;
    config_.profile = config.profile;
    config_.filter = config.filter;
    config_.source.masks = config.source.masks;
    config_.analyzer.infrared = config.analyzer.infrared;
    config_.type_by_picture = config.type_by_picture;
    if (config_.handsOver() && ring_.most() == 0) ring_ = FrameRing(static_cast<std::size_t>(config_.warm_up));
}

/// A change is wanted and its analyzer can begin to learn.
bool Camera::changeDue() const {
    return change_ && due_at_ != 0 && !hand_over_ && analyzer_ && Clock::now() >= hand_over_retry_.nextTry();
}

/// The next frame is the new analyzer's.
bool Camera::holdsBack() const {
    if (in_place_) return true;
    if (!feeder_.live()) return hand_over_ || (changeDue() && last_sequence_ + 1 >= due_at_);
    return hand_over_ && hand_over_->nearly() && in_flight_.empty() && Clock::now() < hand_over_->learned() + kPatience;
}

void Camera::stepHandOver() {
    if (stopping_) {
        hand_over_.reset();
        return;
    }
    if (!hand_over_ && changeDue() && in_flight_.empty() && (feeder_.live() || last_sequence_ + 1 >= due_at_)) {
        place_ = LearnersPlace::take();
        if (!place_) return;
        coming_ = std::exchange(change_, std::nullopt);
        if (!beginHandOver(coming_->config)) {
            if (!change_) change_ = std::move(coming_);
            coming_.reset();
        }
    }
    if (hand_over_ && hand_over_->caughtUp() && (in_flight_.empty() || !analyzer_)) takeOver();
}

bool Camera::beginHandOver(const CameraConfig& config) {
    ControlParameters control = config.control;
    control.bgframes = std::to_string(ring_.frames().size());
    AnalyzerSettings settings = config_.analyzer;
    settings.infrared = config.analyzer.infrared;
    hand_over_retry_.began(Clock::now());
    try {
        hand_over_ = std::make_unique<HandOver>(settings, controlText(control), ring_.frames(), config.source);
        return true;
    } catch (const std::exception& error) {
        const double delay = hand_over_retry_.failed(Clock::now());
        char text[64];
        std::snprintf(text, sizeof text, "; it is tried again in %g s", delay);
        logWarning(config_.name, std::string("hand-over: ") + error.what() + text);
        place_.reset();
        return false;
    }
}

/// The new analyzer's part of a turn. What happens to it is no concern of the one that answers.
void Camera::turnHandOver() {
    if (!hand_over_) return;
    std::string why;
    try {
        hand_over_->turn();
        if (hand_over_->caughtUp() || Clock::now() < hand_over_->heard() + seconds(config_.answer_seconds)) return;
        why = "the new analyzer gave no answer";
    } catch (const AnalyzerError& error) {
        why = error.what();
    }
    hand_over_.reset();
    place_.reset();
    warm_up_failed_ = true;
    if (coming_ && !change_) change_ = std::move(coming_);
    coming_.reset();
    const double delay = hand_over_retry_.failed(Clock::now());
    char text[64];
    std::snprintf(text, sizeof text, "; it is tried again in %g s", delay);
    logWarning(config_.name, "hand-over: " + why + (analyzer_ ? text : "; a new one learns the scene anew"));
}

/// After a death: an analyzer that has learned from the ring. False where there is none to be had.
bool Camera::recover() {
    if (!mayHandOver() || warm_up_failed_ || ring_.frames().size() < kFewestFrames || stopping_) return false;
    // What was wanted comes with it, unless its frames are still to come.
    const bool also = change_ && ring_.full();
    Change next = also ? *change_ : Change{config_, "restart", false};
    next.why = "restart";
    restarts_.began(Clock::now());
    if (!beginHandOver(next.config)) {
        warm_up_failed_ = true;
        return false;
    }
    if (also) change_.reset();
    coming_ = std::move(next);
    return true;
}

/// Between two frames: from here on the new analyzer answers. Tracks and rules live on.
void Camera::takeOver() {
    const std::unique_ptr<HandOver> done = std::exchange(hand_over_, nullptr);
    const Change change = *std::exchange(coming_, std::nullopt);
    place_.reset();
    if (analyzer_ && !analyzer_->shutdown(kOldAnalyzerGrace)) logDebug(config_.name, "the old analyzer was killed");
    analyzer_ = done->takeAnalyzer();
    root_ = done->takeRoot();
    waiting_since_ = Clock::now();
    due_at_ = 0;
    unannounced_ = false;
    width_ = done->frames().back().picture.width;
    height_ = done->frames().back().picture.height;
    adopt(change.config);
    // Whoever looks at the file sees what is in force; a later analyzer that learns anew reads it.
    try {
        if (config_.control.any())
            writeControlFile(controlPath(config_.analyzer.root, config_.analyzer.device), controlText(config_.control));
    } catch (const std::system_error& error) {
        logError(config_.name, std::string("control file: ") + error.what());
    }
    beginTracks(PictureMap(rules_->map()));  // a copy: rules may begin anew
    const bool fresh = !tracks_;
    CameraInfo camera = info();
    camera.control = done->control();
    camera.tracks = trackSettings(camera.tracks.first_number);
    camera.tracks.learning_frames = static_cast<int>(done->learning());
    std::vector<WarmUpFrame> frames;
    for (const HandOver::WarmUp& frame : done->frames())
        frames.push_back({frame.header, frame.picture.rgb, frame.reply});
    const HandedOver what{rules_->now(), change.why, change.new_picture || fresh, frames};
    callOutputs([&](Output& output) { output.handedOver(camera, what); });
    if (fresh) tracks_.emplace(camera.tracks);
    tracks_->handOver(camera.tracks, what.new_picture);
    for (const HandOver::WarmUp& frame : done->frames()) {
        const Reply reply = parseReply(frame.reply);
        tracks_->warmUp({frame.time_ns, frame.picture.width, frame.picture.height, frame.picture.rgb, reply.detection,
                         reply.objects});
    }
    noteParameters();
    ++counts_.hand_overs;
    char text[120];
    std::snprintf(text, sizeof text, ": a new analyzer has taken over, %zu frames were learned, all in %.2f s",
                  done->learning(), Seconds(Clock::now() - done->began()).count());
    logInfo(config_.name, change.why + text);
    for (Request& request : in_flight_) sendRequest(request);
}

/// An answered frame: what other analyzers learn from.
void Camera::keep(Request& request, const FrameResult& result) {
    watchLight(result);
    if (request.kept) {
        request.kept->sequence = request.sequence;
        if (request.for_ring && result.tracks.scene != SceneState::kBlind) ring_.add(request.kept);
        if (hand_over_) hand_over_->add(request.kept);
        for (const auto& tap : taps_) tap->add(request.kept, result);
        request.kept.reset();
    }
    // Of a file every run hands over at the same frame: no later one can be under way already.
    if (!change_ || !ring_.full())
        due_at_ = 0;
    else if (due_at_ == 0)
        due_at_ = request.sequence + static_cast<std::int64_t>(window_);
}

/// Light that stays, and night mode: the analyzer's background is of another picture.
void Camera::watchLight(const FrameResult& result) {
    const bool changing = result.tracks.scene == SceneState::kChanged;
    if (changing) ring_.clear();
    if (dark_ && !changing && mayHandOver() && !change_) want("light", latestConfig(), false);
    dark_ = changing;
    if (!config_.type_by_picture) return;
    const auto since = night_.update(result.rgb, result.width, result.height, result.time_ns);
    if (!since) return;
    CameraConfig config = latestConfig();
    config.analyzer.infrared = night_.grey();
    logInfo(config_.name, night_.grey() ? "the picture has become grey: the infrared analyzer is to take over"
                                        : "the picture has colours again: the colour analyzer is to take over");
    if (!mayHandOver()) {
        in_place_ = config;
        return;
    }
    ring_.forgetBefore(*since);
    want(night_.grey() ? "night" : "day", config, true);
}

}  // namespace fleifeisa::host
