#include "tune/trial.h"

#include <poll.h>
#include <sys/resource.h>
#include <sysexits.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <deque>
#include <list>

#include "analyzer/analyzer_client.h"
#include "analyzer/control_file.h"
#include "common/private_root.h"
#include "outputs/shown.h"
#include "sources/feeder.h"
#include "sources/rgb_frame.h"

namespace fleifeisa::host {
namespace {

constexpr double kAnswerSeconds = 60;

std::string shortest(double value) {
    std::array<char, 40> text{};
    return {text.data(), std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed).ptr};
}

double secondsOf(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

/// Processor time so far.
double usedOf(int who) {
    rusage usage{};
    ::getrusage(who, &usage);
    return secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
}

double used(clockid_t clock) {
    timespec time{};
    ::clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

double usedBy(pid_t process) {
    clockid_t clock{};
    return ::clock_getcpuclockid(process, &clock) == 0 ? used(clock) : 0;
}

ShareBox shareOf(const Box& box, int width, int height) {
    const double w = width, h = height;
    return {box.left / w, box.top / h, box.right() / w, box.bottom() / h};
}

/// What is made of one analyzer's replies with one candidate's filter.
class Follower {
 public:
    Follower(const TrackSettings& settings, const Truth& truth, std::int64_t learned_ns)
        : tracks_(settings), scorer_(truth, learned_ns) {}

    TrackFrame frame(const FilterInput& input, std::int64_t since_first_ns) {
        const double begin = used(CLOCK_THREAD_CPUTIME_ID);
        const TrackFrame frame = tracks_.frame(input);
        seconds_ += used(CLOCK_THREAD_CPUTIME_ID) - begin;
        shown_.clear();
        for (const Track& track : frame.tracks)
            if (isShown(track)) shown_.push_back({track.number, shareOf(track.box, input.width, input.height)});
        scorer_.frame(since_first_ns, shown_);
        return frame;
    }
    Score score(std::int64_t length_ns) const { return scorer_.finish(length_ns); }
    double seconds() const { return seconds_; }

 private:
    TrackMaker tracks_;
    Scorer scorer_;
    std::vector<ShownTrack> shown_;
    double seconds_ = 0;
};

/// One analyzer, and all who follow it.
class Branch {
 public:
    Branch(const CameraConfig& camera) : settings_(camera.analyzer), control_(camera.control) {
        settings_.root = root_.path();
        if (control_.any()) writeControlFile(controlPath(settings_.root, settings_.device), controlText(control_));
        client_ = std::make_unique<AnalyzerClient>(settings_);
    }
    bool serves(const CameraConfig& camera) const { return control_ == camera.control; }

    void send(const std::string& header, const std::vector<std::uint8_t>& rgb) {
        answered_ = false;
        client_->send(std::span<const char>(header));
        client_->send(std::span<const std::uint8_t>(rgb));
    }
    bool answered() const { return answered_; }
    void take() {
        std::string bytes;
        while (!answered_ && client_->nextReply(bytes)) {
            reply_ = parseReply(bytes);
            answered_ = reply_.numbered;
        }
    }
    const Reply& reply() const { return reply_; }
    AnalyzerClient& client() { return *client_; }
    double seconds() const { return usedBy(client_->pid()); }

    std::vector<std::size_t> followers;  ///< candidates

 private:
    PrivateRoot root_;
    AnalyzerSettings settings_;
    const ControlParameters control_;
    std::unique_ptr<AnalyzerClient> client_;
    Reply reply_;
    bool answered_ = true;
};

/// As Camera has it.
TrackSettings trackSettings(const CameraConfig& camera) {
    TrackSettings settings{camera.raw_tracks, camera.filter, 300, 1};
    settings.filter.infrared = camera.analyzer.infrared;
    settings.filter.by_picture = camera.type_by_picture;
    if (camera.control.bgframes) settings.learning_frames = std::stoi(*camera.control.bgframes);
    return settings;
}

SourceOptions sourceOf(const CameraConfig& camera) {
    SourceOptions source = camera.source;
    source.live = false;
    source.loop = source.realtime = false;
    source.decoder_threads = 1;
    source.start_time_ns.reset();
    return source;
}

class TrialRun {
 public:
    TrialRun(const CameraConfig& camera, const TrialOrder& order, const TrialWatcher& watcher)
        : source_(sourceOf(order.present ? camera : withCandidate(camera, order.candidates.at(0)))),
          watcher_(watcher),
          feeder_(camera.name, source_) {
        for (const ParameterSet& candidate : order.candidates) {
            const CameraConfig config = order.present ? camera : withCandidate(camera, candidate);
            auto branch = std::ranges::find_if(branches_, [&](const Branch& one) { return one.serves(config); });
            if (branch == branches_.end()) branch = branches_.emplace(branches_.end(), config);
            branch->followers.push_back(followers_.size());
            followers_.emplace_back(trackSettings(config), order.truth, order.learned_ns);
        }
    }

    TrialResults run(const std::function<void(std::int64_t, std::int64_t)>& progress) {
        const double children = usedOf(RUSAGE_CHILDREN);
        const double others = usedOf(RUSAGE_SELF) - used(CLOCK_THREAD_CPUTIME_ID);
        feeder_.start();
        RawFrame frame;
        while (take(frame)) {
            handle(frame);
            if (progress) progress(facts_.frames, feeder_.expectedFrames());
        }
        if (feeder_.exitCode() != 0 && (feeder_.exitCode() != EX_DATAERR || facts_.frames == 0))
            throw SourceError(feeder_.exitCode(), source_.source + ": could not be read");
        if (facts_.frames == 0) throw SourceError(EX_DATAERR, source_.source + ": there is no frame in it");
        // The decoder has ended and counts among the children; the analyzers have not.
        converting_ +=
            usedOf(RUSAGE_CHILDREN) - children + (usedOf(RUSAGE_SELF) - used(CLOCK_THREAD_CPUTIME_ID) - others);
        return results();
    }

 private:
    /// Waits for a frame; false at the end.
    bool take(RawFrame& frame) {
        std::int64_t dropped = 0;
        while (!feeder_.take(frame, dropped)) {
            if (feeder_.ended()) return false;
            pollfd item{feeder_.ready().fd(), POLLIN, 0};
            ::poll(&item, 1, 1000);
        }
        return true;
    }

    void handle(RawFrame& frame) {
        const double begin = used(CLOCK_THREAD_CPUTIME_ID);
        if (facts_.frames == 0) {
            facts_.width = source_.region ? source_.region->width : frame.layout.width;
            facts_.height = source_.region ? source_.region->height : frame.layout.height;
            first_ns_ = last_ns_ = frame.time_ns;
        }
        RgbFrame picture = toRgbFrame(frame, source_, spare_);
        if (!frame.bytes.empty()) feeder_.recycle(std::move(frame.bytes));
        if (facts_.frames > 0 && (picture.width != width_ || picture.height != height_))
            throw SourceError(EX_DATAERR, source_.source + ": its pictures change their size");
        width_ = picture.width;
        height_ = picture.height;
        converting_ += used(CLOCK_THREAD_CPUTIME_ID) - begin;
        if (facts_.frames > 0) steps_.push_back(frame.time_ns - last_ns_);
        last_ns_ = frame.time_ns;
        ++facts_.frames;
        const std::string header = frameHeader(width_, height_, frame.time_ns, facts_.frames);
        for (Branch& branch : branches_) branch.send(header, picture.rgb);
        while (!std::ranges::all_of(branches_, &Branch::answered)) exchange();
        for (Branch& branch : branches_)
            for (const std::size_t index : branch.followers) {
                const TrackFrame tracks = followers_[index].frame(
                    {frame.time_ns, width_, height_, picture.rgb, branch.reply().detection, branch.reply().objects},
                    frame.time_ns - first_ns_);
                if (watcher_) watcher_(index, frame.time_ns, tracks);
            }
        spare_ = std::move(picture.rgb);
    }

    /// Bytes to and from all analyzers that owe an answer.
    void exchange() {
        std::vector<pollfd> items;
        for (Branch& branch : branches_) {
            AnalyzerClient& client = branch.client();
            items.push_back({branch.answered() ? -1 : client.wantsWrite(), POLLOUT, 0});
            items.push_back({branch.answered() ? -1 : client.wantsRead(), POLLIN, 0});
            items.push_back({client.wantsErrors(), POLLIN, 0});
        }
        if (::poll(items.data(), items.size(), static_cast<int>(kAnswerSeconds * 1000)) == 0)
            throw AnalyzerError("the analyzer gave no answer for 60 s");
        auto item = items.begin();
        for (Branch& branch : branches_) {
            AnalyzerClient& client = branch.client();
            if ((item++)->revents != 0) client.write();
            if ((item++)->revents != 0) client.read();
            if ((item++)->revents != 0) client.takeErrors();
            if (!branch.answered()) branch.take();
        }
    }

    TrialResults results() {
        TrialResults all;
        if (!steps_.empty()) {
            const auto middle = steps_.begin() + static_cast<std::ptrdiff_t>(steps_.size() / 2);
            std::nth_element(steps_.begin(), middle, steps_.end());
            facts_.step_ns = *middle;
        }
        facts_.length_ns = last_ns_ - first_ns_ + facts_.step_ns;
        all.facts = facts_;
        all.results.resize(followers_.size());
        for (const Branch& branch : branches_)
            for (const std::size_t index : branch.followers)
                all.results[index] = {followers_[index].score(facts_.length_ns),
                                      {converting_, branch.seconds(), followers_[index].seconds(),
                                       static_cast<double>(facts_.length_ns) / 1e9}};
        return all;
    }

    const SourceOptions source_;
    const TrialWatcher& watcher_;
    Feeder feeder_;
    std::list<Branch> branches_;
    std::deque<Follower> followers_;  ///< they do not move
    std::vector<std::uint8_t> spare_;
    std::vector<std::int64_t> steps_;
    ClipFacts facts_;
    int width_ = 0, height_ = 0;  ///< as analyzed
    std::int64_t first_ns_ = 0, last_ns_ = 0;
    double converting_ = 0;  ///< seconds, and of decoding
};

}  // namespace

CameraConfig withCandidate(CameraConfig camera, const ParameterSet& candidate) {
    SourceOptions& source = camera.source;
    source.width = source.height = 0;
    source.longest_side = candidate.longest_side;
    source.rate = candidate.rate;
    ControlParameters& control = camera.control;
    control.bgframes = std::to_string(candidate.learning_frames);
    (camera.analyzer.infrared ? control.ir_low : control.color_low) = shortest(candidate.low);
    (camera.analyzer.infrared ? control.ir_high : control.color_high) = shortest(candidate.high);
    camera.filter.least_area = candidate.least_area;
    camera.filter.shadow_test = candidate.shadow_test;
    camera.filter.split_people = candidate.split_people;
    return camera;
}

ParameterSet candidateOf(const CameraConfig& camera) {
    const bool infrared = camera.analyzer.infrared;
    const auto number = [](const std::optional<std::string>& text, double usual) {
        return text ? std::strtod(text->c_str(), nullptr) : usual;
    };
    const ControlParameters& control = camera.control;
    const SourceOptions& source = camera.source;
    const int side = source.width > 0 ? std::max(source.width, source.height) : source.longest_side;
    return {number(infrared ? control.ir_low : control.color_low, infrared ? 1 : 0.25),
            number(infrared ? control.ir_high : control.color_high, infrared ? 2 : 0.5),
            side > 0 ? side : ParameterSet::kFull,
            source.rate,
            static_cast<int>(number(control.bgframes, 300)),
            camera.filter.least_area,
            camera.filter.shadow_test,
            camera.filter.split_people};
}

TrialResults runTrial(const CameraConfig& camera, const TrialOrder& order,
                      const std::function<void(std::int64_t, std::int64_t)>& progress, const TrialWatcher& watcher) {
    return TrialRun(camera, order, watcher).run(progress);
}

}  // namespace fleifeisa::host
