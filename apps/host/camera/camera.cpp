#include "camera/camera.h"

#include <poll.h>
#include <sysexits.h>

#include <algorithm>
#include <array>

#include "common/log.h"
#include "common/secrets.h"
#include "sources/rgb_frame.h"

namespace fleifeisa::host {
namespace {

// A killed analyzer may cost its camera less than a second: the first restart is nearly immediate, each further one
// takes twice as long. An analyzer that worked for a while begins anew.
constexpr Backoff::Limits kRestarts = {0.05, 30, std::chrono::seconds(30)};
constexpr Backoff::Limits kHandOverRetries = {1, 60, std::chrono::seconds(30)};
// While the analyzer works on one frame the next one already lies in the pipe. A live camera waits for the answer
// instead, so that what it sends is the newest there is.
constexpr std::size_t kFileWindow = 2, kLiveWindow = 1;
// How often a hand-over that waits (for one of the places, for its last answers) is looked after.
constexpr Clock::duration kHandOverTurn = std::chrono::milliseconds(50);
constexpr std::int64_t kLastSequence = 2'147'483'647;

std::optional<Box> regionOf(const SourceOptions& source) {
    if (!source.region) return std::nullopt;
    return Box{source.region->left, source.region->top, source.region->width, source.region->height};
}

/// A sentence for whoever asks.
std::string explainOff(const CameraConfig& config) {
    return "explain is off: " + (config.explain_off.empty() ? "nobody asks" : config.explain_off);
}

}  // namespace

Camera::Camera(CameraConfig config, std::vector<Output*> extra, EventDesk* desk, const std::shared_ptr<WhyBox>& why)
    : config_(std::move(config)),
      recorder_(desk && config_.clips.on && hasDates(config_.source)
                    ? std::make_shared<CameraRecorder>(desk->recorder(), config_.name, clipSettings(config_))
                    : nullptr),
      feeder_(config_.name, config_.source, recorder_),
      desk_(desk),
      wake_(post_->wake()),
      window_(feeder_.live() ? kLiveWindow : kFileWindow),
      idle_(config_.source.idle_rate),
      ring_(config_.handsOver() ? static_cast<std::size_t>(config_.warm_up) : 0),
      night_(config_.analyzer.infrared),
      why_(config_.name, why, config_.analyzer.explainer.empty() ? explainOff(config_) : "", keepsWhy()),
      hand_over_retry_(kHandOverRetries),
      restarts_(kRestarts) {
    for (Output* output : extra) sinks_.push_back({output, {"summary", ""}});
}

/// What is private in the source's own picture is black in the analyzed frames.
ClipSettings Camera::clipSettings(const CameraConfig& config) {
    ClipSettings settings = config.clips;
    settings.as_seen = settings.as_seen || !config.source.private_areas.empty();
    return settings;
}

Camera::~Camera() {
    stop();
    if (thread_.joinable()) thread_.join();
}

CameraInfo Camera::info() const {
    return {config_.name,
            withoutSecrets(config_.source.source),
            config_.analyzer.device,
            config_.analyzer.analyzer_id,
            config_.analyzer.infrared,
            feeder_.dates(),
            feeder_.rate(),
            config_.control.any() ? controlText(config_.control) : "",
            config_.title.empty() ? config_.name : config_.title,
            regionOf(config_.source),
            tracks_ ? tracks_->settings() : trackSettings(next_.track),
            !tracks_,
            rules_ ? rules_->setup() : RuleSetup{config_.rules, {}}};
}

TrackSettings Camera::trackSettings(std::int64_t first_number) const {
    constexpr int kAnalyzersOwn = 300;  // frames that it learns where nothing is said
    TrackSettings settings{config_.raw_tracks, config_.filter, kAnalyzersOwn, first_number};
    settings.filter.infrared = config_.analyzer.infrared;
    settings.filter.by_picture = config_.type_by_picture;
    if (config_.control.bgframes) settings.learning_frames = std::stoi(*config_.control.bgframes);
    return settings;
}

void Camera::prepare() {
    const char* environment = std::getenv("FLEIFEISA_ROOT");
    if (config_.analyzer.root.empty() && environment) config_.analyzer.root = environment;
    if (config_.control.any())
        writeControlFile(controlPath(config_.analyzer.root, config_.analyzer.device), controlText(config_.control));
    warnOfActiveTimes();
    if (!desk_) return;
    const CameraInfo camera = info();
    first_ = next_ = desk_->add(camera.name, camera.title, camera.source, config_.notify_from_ns, post_);
    if (!feeder_.dates()) {
        logWarning(config_.name, "nothing of it is stored: its times are no moments (a file needs a start time)");
        return;
    }
    keeper_.emplace(desk_->store(), camera.name);
    desk_->store().limit(camera.name, config_.keep);
    if (config_.pictures) {
        owned_.push_back(desk_->pictures().tap(camera.name));
        sinks_.push_back({owned_.back().get(), {"pictures", ""}});
    }
    if (recorder_) desk_->recorder().add(camera.name, clipSettings(config_), first_.event);
}

void Camera::start(const Event& done) {
    done_event_ = &done;
    thread_ = std::thread(&Camera::run, this);
}

void Camera::stop() {
    if (!stopping_) stopped_at_ = Clock::now().time_since_epoch().count();
    stopping_ = true;
    feeder_.stop();
    wake_.set();
}

void Camera::reopenOutputs() {
    reopen_ = true;
    wake_.set();
}

void Camera::setRules(const Rules& rules) {
    const std::lock_guard lock(mutex_);
    new_rules_ = rules;
    wake_.set();
}

void Camera::setTaps(std::vector<std::shared_ptr<FrameTap>> taps) {
    const std::lock_guard lock(mutex_);
    new_taps_ = std::move(taps);
    wake_.set();
}

double Camera::cpuSeconds() const {
    clockid_t clock{};
    timespec time{};
    const bool known = !done_ &&
                       ::pthread_getcpuclockid(const_cast<std::thread&>(thread_).native_handle(), &clock) == 0 &&
                       ::clock_gettime(clock, &time) == 0;
    return processorSeconds(analyzer_pid_) +
           (known ? static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9 : 0);
}

void Camera::run() {
    try {
        feeder_.start();
        noteParameters();
        beginRules({});
        serve();
        if (analyzer_ && !analyzer_->shutdown(kShutdownGrace))
            logWarning(config_.name, "the analyzer did not end when asked to and was killed");
        analyzer_.reset();
        if (feeder_.exitCode() != 0) exit_code_ = feeder_.exitCode();
    } catch (const OutputError& error) {
        logError(config_.name, error.what());
        exit_code_ = EX_CANTCREAT;
    } catch (const std::exception& error) {
        logError(config_.name, error.what());
        exit_code_ = EX_SOFTWARE;
    }
    feeder_.stop();
    finishOutputs();
    done_ = true;
    done_event_->set();
}

/// Until the source has ended and everything is answered, or the stop came and what is in work is answered.
void Camera::serve() {
    for (;;) {
        if (!analyzer_ && !hand_over_ && !given_up_ && Clock::now() >= restarts_.nextTry() && !recover())
            startAnalyzer();
        if (given_up_) return;
        analyzer_pid_ = analyzer_ ? analyzer_->pid() : 0;
        takeChange();
        takeTaps();
        applyRules();
        stepHandOver();
        reopenWhereAsked();
        takePost();
        takeFrames();
        noteSource();
        tickRules();
        if (in_flight_.empty() && (stopping_ || (feeder_.ended() && !held_))) return;
        // Without an analyzer nothing more gets answered, so a stop does not wait for one to come.
        if (stopping_ && !analyzer_) return;
        try {
            pollOnce();
            if (analyzer_) takeReplies();
            if (analyzer_) checkAnswerTime();
            why_.turn(analyzer_.get());
        } catch (const AnalyzerError& error) {
            analyzerFailed(error.what());
        }
        turnHandOver();
    }
}

void Camera::takeFrames() {
    while (!stopping_ && analyzer_ && !holdsBack() && in_flight_.size() < window_) {
        if (!held_) {
            Request request;
            if (!readFrame(request)) return;
            held_ = std::move(request);
        }
        if (width_ != 0 && (held_->width != width_ || held_->height != height_)) {
            // An analyzer keeps the size of its first frame: the frames before are answered by the old one.
            if (!in_flight_.empty()) return;
            logWarning(config_.name, "the frames are now " + std::to_string(held_->width) + "x" +
                                         std::to_string(held_->height) + ": a new analyzer learns the scene anew");
            ring_.clear();
            startFresh();
            if (!analyzer_) return;
        } else if (width_ != 0 && !change_ && !coming_ && freshAnalyzerWanted()) {
            if (!in_flight_.empty()) return;
            if (mayHandOver() && ring_.full()) {
                want("rotation", latestConfig(), false);
                due_at_ = last_sequence_ + 1;
                return;
            }
            logInfo(config_.name, "a recording begins a new file: a new analyzer learns the scene anew");
            startFresh();
            if (!analyzer_) return;
        }
        sendNext();
    }
}

void Camera::sendNext() {
    in_flight_.push_back(std::move(*held_));
    held_.reset();
    Request& request = in_flight_.back();
    last_sequence_ = last_sequence_ == kLastSequence ? 1 : last_sequence_ + 1;
    request.sequence = last_sequence_;
    request.header = frameHeader(request.width, request.height, request.time_ns, request.sequence);
    if (in_flight_.size() == 1) waiting_since_ = Clock::now();
    why_.sending(*analyzer_, request.sequence);
    sendRequest(request);
}

/// Takes the next frame of the source that is to be analyzed, if there is one. What the source told of those before
/// goes with it.
bool Camera::takeFrame(RawFrame& frame, Request& request) {
    while (!stopping_ && idle_.decidable()) {
        std::int64_t dropped = 0;
        if (!feeder_.take(frame, dropped)) return false;
        counts_.dropped += dropped;
        counts_.expected = feeder_.expectedFrames();
        passed_over_.dropped += dropped;
        passed_over_.clock_step_ns += frame.clock_step_ns;
        if (idle_.wants(frame.time_ns)) {
            request.time_ns = frame.time_ns;
            request.dropped = std::exchange(passed_over_.dropped, 0);
            request.clock_step_ns = std::exchange(passed_over_.clock_step_ns, 0);
            return true;
        }
        ++counts_.passed_over;
        feeder_.recycle(std::move(frame.bytes));
    }
    return false;
}

bool Camera::readFrame(Request& request) {
    RawFrame frame;
    if (!takeFrame(frame, request)) return false;
    if (const auto& cut = config_.source.region)
        request.map =
            PictureMap::ofRegion(cut->left, cut->top, cut->width, cut->height, frame.layout.width, frame.layout.height);
    request.for_ring = ring_.due(frame.time_ns);
    RgbFrame picture = toRgbFrame(frame, config_.source, spare_rgb_,
                                  request.for_ring || hand_over_ || !taps_.empty() ? &request.kept : nullptr);
    if (!frame.bytes.empty()) feeder_.recycle(std::move(frame.bytes));
    request.width = picture.width;
    request.height = picture.height;
    request.rgb = std::move(picture.rgb);
    return true;
}

void Camera::pollOnce() {
    const bool hungry = !stopping_ && analyzer_ && !holdsBack() && !held_ && in_flight_.size() < window_ &&
                        idle_.decidable() && !feeder_.ended();
    std::array<pollfd, 10> items = {{{wake_.fd(), POLLIN, 0},
                                     {hungry ? feeder_.ready().fd() : -1, POLLIN, 0},
                                     {analyzer_ ? analyzer_->wantsWrite() : -1, POLLOUT, 0},
                                     {analyzer_ ? analyzer_->wantsRead() : -1, POLLIN, 0},
                                     {analyzer_ ? analyzer_->wantsErrors() : -1, POLLIN, 0},
                                     {hand_over_ ? hand_over_->wantsWrite() : -1, POLLOUT, 0},
                                     {hand_over_ ? hand_over_->wantsRead() : -1, POLLIN, 0},
                                     {hand_over_ ? hand_over_->wantsErrors() : -1, POLLIN, 0},
                                     {why_.wakes(), POLLIN, 0},
                                     {why_.wantsRead(analyzer_.get()), POLLIN, 0}}};
    if (stopping_) items[0].fd = -1;
    Clock::time_point deadline = Clock::now() + std::chrono::minutes(1);
    if (!analyzer_ && !hand_over_) deadline = restarts_.nextTry();
    if (analyzer_ && !in_flight_.empty()) deadline = answerDeadline();
    if (hand_over_ || changeDue()) deadline = std::min(deadline, Clock::now() + kHandOverTurn);
    if (feeder_.live() && !stopping_) deadline = std::min(deadline, Clock::now() + std::chrono::seconds(1));
    deadline = why_.due(deadline);
    if (::poll(items.data(), items.size(), pollTimeout(deadline)) <= 0) return;
    if (items[4].revents != 0)
        for (const std::string& line : analyzer_->takeErrors()) logDebug(config_.name, "analyzer: " + line);
    if (items[2].revents != 0) analyzer_->write();
    if (items[3].revents != 0) analyzer_->read();
}

}  // namespace fleifeisa::host
