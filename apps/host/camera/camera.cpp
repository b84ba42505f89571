#include "camera/camera.h"

#include <poll.h>
#include <sysexits.h>

#include <algorithm>
#include <array>

#include "camera/output_types.h"
#include "common/log.h"
#include "common/secrets.h"
#include "common/text.h"
#include "sources/rgb_frame.h"

namespace fleifeisa::host {
namespace {

// A killed analyzer may cost its camera less than a second: the first restart is nearly immediate, each further one
// takes twice as long. An analyzer that worked for a while begins anew.
constexpr Backoff::Limits kRestarts = {0.05, 30, std::chrono::seconds(30)};
// A stop takes no longer than these two together, so that a service ends within three seconds whatever hangs.
constexpr Clock::duration kShutdownGrace = std::chrono::milliseconds(1200);
constexpr Clock::duration kStopGrace = std::chrono::seconds(1);  // for the answer to the frame in work
constexpr int kGiveUp = 7;    // analyzers in a row without an answer; a live camera never gives up
constexpr int kAttempts = 3;  // a frame over which so many analyzers die is given up
// While the analyzer works on one frame the next one already lies in the pipe. A live camera waits for the answer
// instead, so that what it sends is the newest there is.
constexpr std::size_t kFileWindow = 2, kLiveWindow = 1;
// Without frames rules are told the time: a second ago, so that a frame that is on its way is not older.
constexpr std::int64_t kTickNs = 1'000'000'000;
constexpr std::size_t kMostReason = 200;  // bytes of why an analyzer was restarted, in its event
constexpr std::int64_t kLastSequence = 2'147'483'647;

std::optional<Box> regionOf(const SourceOptions& source) {
    if (!source.region) return std::nullopt;
    return Box{source.region->left, source.region->top, source.region->width, source.region->height};
}

bool hasActiveTimes(const Rules& rules) {
    const auto limited = [](const auto& rule) { return !rule.limits.when.always(); };
    return !rules.motion.when.always() || std::ranges::any_of(rules.zones, limited) ||
           std::ranges::any_of(rules.lines, limited);
}

TrackSettings trackSettings(const CameraConfig& config, std::int64_t first_number) {
    constexpr int kAnalyzersOwn = 300;  // frames that it learns where nothing is said
    TrackSettings settings{config.raw_tracks, config.filter, kAnalyzersOwn, first_number};
    settings.filter.infrared = config.analyzer.infrared;
    if (config.control.bgframes) settings.learning_frames = std::stoi(*config.control.bgframes);
    return settings;
}

}  // namespace

Camera::Camera(CameraConfig config, std::vector<Output*> extra, EventDesk* desk)
    : config_(std::move(config)),
      feeder_(config_.name, config_.source),
      desk_(desk),
      wake_(post_->wake()),
      window_(feeder_.live() ? kLiveWindow : kFileWindow),
      restarts_(kRestarts) {
    for (Output* output : extra) sinks_.push_back({output, {"summary", ""}});
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
            tracks_ ? tracks_->settings() : trackSettings(config_, next_.track),
            !tracks_,
            rules_ ? rules_->setup() : RuleSetup{config_.rules, {}}};
}

void Camera::prepare() {
    const char* environment = std::getenv("FLEIFEISA_ROOT");
    if (config_.analyzer.root.empty() && environment) config_.analyzer.root = environment;
    if (config_.control.any())
        writeControlFile(controlPath(config_.analyzer.root, config_.analyzer.device), controlText(config_.control));
    if (!feeder_.dates() && hasActiveTimes(config_.rules))
        logWarning(config_.name, "'when' is not applied: the file has no start time");
    if (!desk_) return;
    const CameraInfo camera = info();
    first_ = next_ = desk_->add(camera.name, camera.title, camera.source, config_.notify, post_);
    if (!feeder_.dates()) {
        logWarning(config_.name, "nothing of it is stored: its times are no moments (a file needs a start time)");
        return;
    }
    keeper_.emplace(desk_->store(), camera.name);
}

void Camera::openOutputs() {
    if (std::exchange(opened_, true)) return;
    for (const OutputChoice& wanted : config_.outputs) openOutput(wanted);
}

void Camera::openOutput(const OutputChoice& wanted) {
    OutputChoice choice = wanted;
    choice.policy.service = config_.service;
    try {
        owned_.push_back(makeOutput(choice, info()));
        sinks_.push_back({owned_.back().get(), choice});
    } catch (const OutputError& error) {
        if (!config_.service) throw;
        logError(config_.name, "output " + wanted.type + " is left out: " + error.what());
        exit_code_ = EX_CANTCREAT;
    }
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

void Camera::setControl(const ControlParameters& control) {
    const std::lock_guard lock(mutex_);
    new_control_ = control;
    wake_.set();
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
        if (!analyzer_ && !given_up_ && Clock::now() >= restarts_.nextTry()) startAnalyzer();
        if (given_up_) return;
        applyControl();
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
        } catch (const AnalyzerError& error) {
            analyzerFailed(error.what());
        }
    }
}

/// New control parameters: written while no frame is under way, so that it is certain which frames they concern.
void Camera::applyControl() {
    {
        const std::lock_guard lock(mutex_);
        if (new_control_) pending_control_ = std::exchange(new_control_, std::nullopt);
        if (!stopping_) wake_.clear();
    }
    if (!pending_control_ || !in_flight_.empty()) return;
    config_.control = *std::exchange(pending_control_, std::nullopt);
    const std::string text = controlText(config_.control);
    try {
        if (writeControlFile(controlPath(config_.analyzer.root, config_.analyzer.device), text)) {
            logInfo(config_.name, "new control parameters, the background is learnt anew");
            // Outputs that are still to hear of the analyzer hear of these with it.
            if (!unannounced_) callOutputs([&text](Output& output) { output.controlChanged(text); });
            noteParameters();
        }
    } catch (const std::system_error& error) {
        logError(config_.name, std::string("control file: ") + error.what());
    }
}

void Camera::takeFrames() {
    while (!stopping_ && analyzer_ && !pending_control_ && in_flight_.size() < window_) {
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
            analyzer_->shutdown(kShutdownGrace);
            startAnalyzer();
            if (!analyzer_) return;
        } else if (width_ != 0 && freshAnalyzerWanted()) {
            if (!in_flight_.empty()) return;
            logInfo(config_.name, "a recording begins a new file: a new analyzer learns the scene anew");
            analyzer_->shutdown(kShutdownGrace);
            startAnalyzer();
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
    sendRequest(request);
}

/// Takes the next frame of the source, if there is one.
bool Camera::readFrame(Request& request) {
    RawFrame frame;
    if (!feeder_.take(frame, request.dropped)) return false;
    counts_.dropped += request.dropped;
    counts_.expected = feeder_.expectedFrames();
    request.time_ns = frame.time_ns;
    request.clock_step_ns = frame.clock_step_ns;
    if (const auto& cut = config_.source.region)
        request.map =
            PictureMap::ofRegion(cut->left, cut->top, cut->width, cut->height, frame.layout.width, frame.layout.height);
    RgbFrame picture = toRgbFrame(frame, config_.source, spare_rgb_);
    if (!frame.bytes.empty()) feeder_.recycle(std::move(frame.bytes));
    request.width = picture.width;
    request.height = picture.height;
    request.rgb = std::move(picture.rgb);
    return true;
}

bool Camera::freshAnalyzerWanted() const {
    return std::ranges::any_of(sinks_, [](const Sink& sink) { return sink.output->state().wants_fresh_analyzer; });
}

void Camera::reopenWhereAsked() {
    if (reopen_.exchange(false)) callOutputs([](Output& output) { output.reopen(); });
}

/// The outputs hear of an analyzer when it gets its first frame: some sources know their rate no earlier.
void Camera::sendRequest(Request& request) {
    if (std::exchange(unannounced_, false)) announce(request.map);
    width_ = request.width;
    height_ = request.height;
    analyzer_->send(std::span<const char>(request.header));
    analyzer_->send(std::span<const std::uint8_t>(request.rgb));
}

/// A fresh analyzer: tracks and rules live on, unless a recording begins a new file, which must be able to tell all.
void Camera::announce(const PictureMap& map) {
    if (tracks_ && freshAnalyzerWanted()) {
        endTracks(TrackEnd::kSource);
        finishRules("source");
        tracks_.reset();
    }
    if (!tracks_) {
        finishRules("back");  // what they made of a source without frames
        beginRules(map);
        if (!opened_) first_.event = next_.event;
    }
    openOutputs();
    const CameraInfo camera = info();
    callOutputs([&camera](Output& output) { output.started(camera); });
    if (tracks_)
        tracks_->analyzerRestarted();
    else
        tracks_.emplace(camera.tracks);
}

void Camera::endTracks(TrackEnd why) {
    if (!tracks_) return;
    const TrackFrame frame = tracks_->end(why);
    callOutputs([&frame, why](Output& output) { output.ended(frame, why); });
    next_.track = tracks_->settings().first_number;
    keepTracks(frame, false);
    rules_->ended(frame);
}

/// Tracks do not outlive the loss of a live source: what comes back later may be anything.
void Camera::noteSource() {
    if (feeder_.outages() == outages_ || !in_flight_.empty() || held_ || feeder_.holds()) return;
    outages_ = feeder_.outages();
    if (std::exchange(source_lost_, true)) return;
    endTracks(TrackEnd::kSource);
    rules_->step({RuleStep::kLost, now()});
    if (keeper_) keeper_->scene(now(), SceneState::kLost);
}

void Camera::pollOnce() {
    const bool hungry =
        !stopping_ && analyzer_ && !pending_control_ && !held_ && in_flight_.size() < window_ && !feeder_.ended();
    std::array<pollfd, 5> items = {{{wake_.fd(), POLLIN, 0},
                                    {hungry ? feeder_.ready().fd() : -1, POLLIN, 0},
                                    {analyzer_ ? analyzer_->wantsWrite() : -1, POLLOUT, 0},
                                    {analyzer_ ? analyzer_->wantsRead() : -1, POLLIN, 0},
                                    {analyzer_ ? analyzer_->wantsErrors() : -1, POLLIN, 0}}};
    if (stopping_) items[0].fd = -1;
    Clock::time_point deadline = Clock::now() + std::chrono::minutes(1);
    if (!analyzer_) deadline = restarts_.nextTry();
    if (analyzer_ && !in_flight_.empty()) deadline = answerDeadline();
    if (feeder_.live() && !stopping_) deadline = std::min(deadline, Clock::now() + std::chrono::seconds(1));
    if (::poll(items.data(), items.size(), pollTimeout(deadline)) <= 0) return;
    if (items[4].revents != 0)
        for (const std::string& line : analyzer_->takeErrors()) logDebug(config_.name, "analyzer: " + line);
    if (items[2].revents != 0) analyzer_->write();
    if (items[3].revents != 0) analyzer_->read();
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
    callOutputs([&result](Output& output) { output.frame(result); });
    keepTracks(result.tracks, true);
    if (tracks_) next_.track = tracks_->settings().first_number;
    rules_->frame(result.tracks);
    ++counts_.answered;
    if (reply.detection) ++counts_.detected;
    failures_in_a_row_ = 0;
    if (spare_rgb_.empty())
        spare_rgb_ = std::move(in_flight_.front().rgb);
    else
        feeder_.recycle(std::move(in_flight_.front().rgb));
    in_flight_.pop_front();
    waiting_since_ = Clock::now();
}

/// What the outputs are told of a frame. Ends what has to end before it.
FrameResult Camera::resultOf(const Request& request, const Reply& reply, const std::string& bytes) {
    if (!(request.map == rules_->map()))
        rules_->step({.kind = RuleStep::kMap, .time_ns = rules_->now(), .map = request.map});
    const bool back = tracks_->clockWentBack(request.time_ns) || request.clock_step_ns < 0;
    if (back) endTracks(TrackEnd::kClock);
    if (back || request.clock_step_ns != 0) {
        const std::int64_t before =
            request.clock_step_ns != 0 ? request.time_ns - request.clock_step_ns : rules_->now();
        logWarning(config_.name, "the clock was stepped");
        rules_->step({RuleStep::kClock, request.time_ns, before});
    }
    if (std::exchange(source_lost_, false)) rules_->step({RuleStep::kBack, request.time_ns});
    FrameResult result;
    result.camera = config_.name;
    result.sequence = request.sequence;
    result.time_ns = request.time_ns;
    result.live = feeder_.dates();
    result.realtime = feeder_.live() || config_.source.realtime;
    result.dropped = request.dropped + std::exchange(lost_untold_, 0);
    result.width = request.width;
    result.height = request.height;
    result.detection = reply.detection;
    result.objects = reply.objects;
    result.rgb = request.rgb;
    result.request = request.header;
    result.reply = bytes;
    result.tracks =
        tracks_->frame({request.time_ns, request.width, request.height, request.rgb, reply.detection, reply.objects});
    return result;
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

void Camera::startAnalyzer() {
    try {
        analyzer_ = std::make_unique<AnalyzerClient>(config_.analyzer);
    } catch (const AnalyzerError& error) {
        analyzerFailed(error.what());
        return;
    }
    waiting_since_ = Clock::now();
    restarts_.began(waiting_since_);
    width_ = height_ = 0;
    unannounced_ = true;
    for (Request& request : in_flight_) sendRequest(request);
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
        for (const Request& request : in_flight_) lost_untold_ += 1 + request.dropped;
        in_flight_.clear();
    } else if (!in_flight_.empty() && ++in_flight_.front().attempts >= kAttempts) {
        logError(config_.name, "frame " + std::to_string(in_flight_.front().sequence) +
                                   " is given up: " + std::to_string(kAttempts) + " analyzers died over it");
        lost_untold_ += 1 + in_flight_.front().dropped;
        in_flight_.pop_front();
        for (Request& request : in_flight_)
            request.header = frameHeader(request.width, request.height, request.time_ns, --request.sequence);
        lost = 1;
        exit_code_ = EX_SOFTWARE;
    }
    counts_.lost += lost;
    last_sequence_ -= lost;
    return lost;
}

/// An output that fails is reported, once, and tries again by itself; the camera goes on.
void Camera::callOutputs(const std::function<void(Output&)>& call) {
    for (auto it = sinks_.begin(); it != sinks_.end();) {
        Sink& sink = *it;
        try {
            call(*sink.output);
        } catch (const OutputError& error) {
            if (!std::exchange(sink.failing, true))
                logError(config_.name, "output " + sink.choice.type + " fails, it is tried again: " + error.what());
        } catch (const std::exception& error) {
            logError(config_.name, "output " + sink.choice.type + " is given up: " + error.what());
            exit_code_ = EX_IOERR;
            ends_.push_back({sink.choice, {true, sink.output->state().lost}});
            it = sinks_.erase(it);
            continue;
        }
        if (sink.failing && !sink.output->state().failing) {
            sink.failing = false;
            logWarning(config_.name, "output " + sink.choice.type + " is written again, records lost until now: " +
                                         std::to_string(sink.output->state().lost));
        }
        ++it;
    }
}

void Camera::finishOutputs() {
    constexpr double kSettleSeconds = 30, kStopSeconds = 0.5;
    endTracks(TrackEnd::kSource);
    finishRules(replaced_ ? "configuration" : "source");
    if (keeper_) {
        keeper_->finish();
        if (!desk_->store().settle(stopping_ ? kStopSeconds : kSettleSeconds))
            logWarning(config_.name, "the store is slow: outputs miss the last events");
        takePost();
    }
    callOutputs([](Output& output) { output.finish(); });
    for (const Sink& sink : sinks_) {
        const OutputState state = sink.output->state();
        if (exit_code_ == 0 && (sink.failing || state.failing || state.lost > 0)) exit_code_ = EX_IOERR;
        ends_.push_back({sink.choice, {sink.failing || state.failing, state.lost}});
    }
}

// ---- Rules ----

/// @param map  of the first frame
void Camera::beginRules(const PictureMap& map) {
    const bool dates = feeder_.dates();
    rules_.emplace(
        RuleSetup{config_.rules, {config_.name, next_.event, parameters_, map, dates}},
        [this](const RuleRun::Call& call) { callOutputs(call); },
        [this](const RuleResults& results) { ruled(results); });
}

void Camera::finishRules(const std::string& reason) {
    if (!rules_) return;
    rules_->step({.kind = RuleStep::kFinish, .time_ns = rules_->now(), .change = reason});
    next_.event = rules_->nextNumber();
    rules_.reset();
}

/// With a store outputs hear of events when they are safe on disk.
void Camera::ruled(const RuleResults& results) {
    next_.event = rules_->nextNumber();
    if (desk_) desk_->store().numbers(config_.name, next_);
    if (!keeper_) {
        for (const CameraEvent& event : results.events) callOutputs([&event](Output& output) { output.told(event); });
        return;
    }

    if (!results.events.empty() || !results.crossings.empty() || !results.near_misses.empty())
        desk_->store().results(config_.name, results);
}

/// The analyzer's own ids begin again with each analyzer: nothing to keep.
void Camera::keepTracks(const TrackFrame& frame, bool seen) {
    if (keeper_ && !config_.raw_tracks) keeper_->frame(frame, rules_->map(), seen);
}

/// What others have left for this camera.
void Camera::takePost() {
    for (const CameraEvent& event : post_->takeCommitted())
        if (event.number >= first_.event) callOutputs([&event](Output& output) { output.told(event); });
    if (!rules_) return;
    for (const std::string& text : post_->takeSaid()) tellRules(EventKind::kExternal, "", text);
    if (!keeper_) return;
    if (const std::int64_t lost = desk_->store().takeLost(config_.name); lost > 0)
        rules_->step(
            {RuleStep::kTell, now(), 0, EventKind::kGap, static_cast<double>(lost), "events", "the disk was too slow"});
}

void Camera::tickRules() {
    if (!feeder_.live() || stopping_) return;
    const bool idle = in_flight_.empty() && !held_ && !feeder_.holds();
    const std::int64_t time_ns = feeder_.now() - kTickNs;
    if ((idle || !analyzer_) && time_ns >= rules_->now() + kTickNs) rules_->step({RuleStep::kTick, time_ns});
}

void Camera::tellRules(EventKind kind, const std::string& change, const std::string& text) {
    if (!rules_) return;
    rules_->step({.kind = RuleStep::kTell,
                  .time_ns = now(),
                  .event = kind,
                  .change = change,
                  .text = cleanUtf8(
                      std::string_view(text).substr(0, kind == EventKind::kAnalyzer ? kMostReason : text.size()))});
}

/// Live: by the clock. Else time goes with the frames.
std::int64_t Camera::now() const {
    if (feeder_.live()) return feeder_.now();
    return std::max(rules_ ? rules_->now() : 0, config_.source.start_time_ns.value_or(0));
}

/// All that tracks and events depend on, as events name it.
void Camera::noteParameters() {
    TrackSettings settings = trackSettings(config_, 1);
    const std::string text = rulesText(config_.rules) + settingsText(settings) + '\n' + controlText(config_.control);
    parameters_ = parametersHash(text);
    if (keeper_) desk_->store().parameters(parameters_, text, now());
    if (rules_) rules_->step({.kind = RuleStep::kParameters, .time_ns = rules_->now(), .change = parameters_});
}

}  // namespace fleifeisa::host
