#include "archive/clip_pool.h"

#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/wait.h>
#include <sysexits.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <memory>

#include "common/log.h"
#include "common/process.h"

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;

constexpr int kTickMilliseconds = 250;
constexpr Clock::duration kGrace = std::chrono::seconds(5);  ///< for children to end when they are no longer wanted

/// The processors that as many processes may take, of those that this process has.
cpu_set_t someOf(const cpu_set_t& all, int count) {
    cpu_set_t some;
    CPU_ZERO(&some);
    // From the end: interrupts are mostly served at the beginning.
    for (int cpu = CPU_SETSIZE - 1; cpu >= 0 && CPU_COUNT(&some) < count; --cpu)
        if (CPU_ISSET(cpu, &all)) CPU_SET(cpu, &some);
    return some;
}

/// Children of this thread get some of its processors as long as this lives.
class FewerProcessors {
 public:
    explicit FewerProcessors(int count) {
        known_ = ::sched_getaffinity(0, sizeof all_, &all_) == 0;
        if (!known_ || count >= CPU_COUNT(&all_)) return;
        const cpu_set_t some = someOf(all_, count);
        changed_ = ::sched_setaffinity(0, sizeof some, &some) == 0;
    }
    ~FewerProcessors() {
        if (changed_) ::sched_setaffinity(0, sizeof all_, &all_);
    }
    FewerProcessors(const FewerProcessors&) = delete;
    FewerProcessors& operator=(const FewerProcessors&) = delete;

 private:
    cpu_set_t all_{};
    bool known_ = false, changed_ = false;
};

/// A child at work.
struct Child {
    const ClipRun* run = nullptr;
    Process process;
    pid_t pid = -1;
    std::string order;             ///< what it has not been given of it
    std::string said, complained;  ///< what came from it and is not a whole line yet
    std::string last_error;
    std::int64_t frames = 0, expected = 0;
    Clock::time_point begin = Clock::now();
};

/// Reads what there is, gives every whole line to `take`. False at the end.
template <typename Take>
bool readLines(const Fd& fd, std::string& rest, Take take) {
    constexpr std::size_t kLongest = 1 << 16;
    std::array<char, 4096> bytes{};
    for (;;) {
        const ssize_t count = ::read(fd.get(), bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return errno == EAGAIN;
        if (count == 0) return false;
        rest.append(bytes.data(), static_cast<std::size_t>(count));
        for (std::size_t end; (end = rest.find('\n')) != std::string::npos; rest.erase(0, end + 1))
            take(rest.substr(0, end));
        if (rest.size() > kLongest) rest.clear();
    }
}

/// Will the same clip fail again?
bool isLasting(int status) {
    return WIFEXITED(status) && (WEXITSTATUS(status) == EX_DATAERR || WEXITSTATUS(status) == EX_USAGE ||
                                 WEXITSTATUS(status) == EX_CONFIG || WEXITSTATUS(status) == EX_PROTOCOL);
}

class Pool {
 public:
    Pool(Archive& archive, std::span<const ClipRun> runs, const PoolSettings& settings)
        : archive_(archive), settings_(settings), jobs_(settings.jobs > 0 ? settings.jobs : processors()) {
        progress_.runs = static_cast<std::int64_t>(runs.size());
        const std::set<std::string> results = archive.results();
        std::map<std::string, ClipFailure> failures = archive.failures();
        for (const ClipRun& run : runs) {
            const auto failure = failures.find(run.name);
            if (results.contains(run.name))
                ++progress_.done;
            else if (failure != failures.end() && failure->second.lasting && !settings.retry_lasting)
                ++progress_.failed;
            else
                waiting_.push_back(&run);
        }
        // The longest first, so that no processor waits for another at the end.
        std::ranges::stable_sort(waiting_, std::ranges::greater(),
                                 [](const ClipRun* run) { return run->clip.weight(); });
        for (const ClipRun* run : waiting_) bytes_left_ += run->clip.weight();
    }

    PoolEnd run(const Event& stop, const std::function<void(const PoolProgress&)>& tick) {
        while (!stopped_ && (!waiting_.empty() || !children_.empty())) {
            while (static_cast<int>(children_.size()) < jobs_ && !waiting_.empty()) start();
            waitFor(stop);
            measure();
            if (tick) tick(progress_);
        }
        if (stopped_) endAll();
        return {made_, progress_.done, progress_.failed, stopped_};
    }

 private:
    void start() {
        const ClipRun& run = *waiting_.front();
        waiting_.pop_front();
        auto child = std::make_unique<Child>();
        child->run = &run;
        Process::Options options;
        options.argv = {settings_.program.empty() ? thisProgram() : settings_.program, "clip-run",
                        archive_.directory()};
        if (!settings_.analyzer.empty()) options.argv.insert(options.argv.end(), {"--analyzer", settings_.analyzer});
        options.pipe_in = options.pipe_out = options.pipe_err = true;
        options.pipe_bytes = 0;
        options.nice = settings_.nice;
        {
            const FewerProcessors fewer(jobs_);
            child->process = Process(options);
        }
        child->pid = child->process.pid();
        child->order = toJson(run) + '\n';
        send(*child);
        children_.push_back(std::move(child));
        ++progress_.running;
    }

    /// An order may be longer than a pipe holds.
    static void send(Child& child) {
        while (!child.order.empty()) {
            const ssize_t count = ::write(child.process.in.get(), child.order.data(), child.order.size());
            if (count < 0 && errno == EINTR) continue;
            if (count < 0 && errno != EAGAIN) child.order.clear();  // it is gone: its end tells why
            if (count < 0) return;
            child.order.erase(0, static_cast<std::size_t>(count));
        }
    }

    void waitFor(const Event& stop) {
        std::vector<pollfd> items{{stop.fd(), POLLIN, 0}};
        for (const auto& child : children_) {
            items.push_back({child->process.out.get(), POLLIN, 0});
            items.push_back({child->process.err.get(), POLLIN, 0});
            if (!child->order.empty()) items.push_back({child->process.in.get(), POLLOUT, 0});
        }
        ::poll(items.data(), items.size(), kTickMilliseconds);
        stopped_ = items[0].revents != 0;
        for (std::size_t i = 0; i < children_.size();) {
            Child& child = *children_[i];
            send(child);
            if (listen(child)) {
                ++i;
                continue;
            }
            const std::unique_ptr<Child> ended = std::move(children_[i]);
            children_.erase(children_.begin() + static_cast<std::ptrdiff_t>(i));
            --progress_.running;
            if (!stopped_) take(*ended);
        }
    }

    /// False once it has closed its output, which is when it ends.
    bool listen(Child& child) {
        readLines(child.process.err, child.complained, [&child](const std::string& line) {
            constexpr std::string_view kError = "error: ";
            if (const std::size_t at = line.find(kError); at != std::string::npos) {
                child.last_error = line.substr(at + kError.size());
                if (const std::string camera = child.run->clip.camera + ": "; child.last_error.starts_with(camera))
                    child.last_error.erase(0, camera.size());
            }
            logDebug("", line);
        });
        return readLines(child.process.out, child.said, [this, &child](const std::string& line) {
            long long frames = 0, expected = 0;
            if (std::sscanf(line.c_str(), "frames %lld %lld", &frames, &expected) != 2) return;
            progress_.frames += frames - child.frames;
            child.frames = frames;
            child.expected = expected;
        });
    }

    /// A child has ended.
    void take(Child& child) {
        const int status = child.process.wait(Clock::now() + kGrace).value_or(-1);
        if (child.process.running()) child.process.kill();
        const ClipRun& run = *child.run;
        bytes_left_ -= run.clip.weight();
        std::error_code error;
        fs::remove_all(archive_.partOf(run.name, child.pid), error);  // there where it did not come to an orderly end
        JournalLine line{run.name, status == 0 && archive_.has(run.name), 0, child.frames, 0, 0, 0, 0};
        line.ended_ns = std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
        line.weight = run.clip.weight();
        line.seconds = Seconds(Clock::now() - child.begin).count();
        if (line.done) {
            const ClipCost cost = archive_.cost(run.name);
            line.cpu_seconds = cost.cpu_seconds;
            line.peak_bytes = cost.peak_bytes;
            line.frames = archive_.summary(run.name).frames;
            progress_.frames += line.frames - child.frames;
            ++progress_.done;
            ++made_;
        } else {
            const std::string why = child.last_error.empty() ? describeStatus(status) : child.last_error;
            archive_.noteFailure(
                {run.name, WIFSIGNALED(status) ? describeStatus(status) : why, nodeName(), isLasting(status)});
            logWarning("", run.clip.file + ": " + why);
            ++progress_.failed;
        }
        bytes_done_ += run.clip.weight();
        archive_.note(line);
    }

    /// Nobody wants their results any more: they end when their input does.
    void endAll() {
        for (const auto& child : children_) child->process.in.reset();
        const Clock::time_point deadline = Clock::now() + kGrace;
        for (const auto& child : children_) {
            if (!child->process.wait(deadline)) child->process.kill();
            std::error_code error;
            fs::remove_all(archive_.partOf(child->run->name, child->pid), error);
        }
        children_.clear();
        progress_.running = 0;
    }

    void measure() {
        const Clock::time_point now = Clock::now();
        const double passed = Seconds(now - last_).count();
        constexpr double kMemory = 5, kLeast = 0.5;  // seconds
        if (passed < kLeast) return;
        const double rate = static_cast<double>(progress_.frames - last_frames_) / passed;
        const double weight = last_frames_ == 0 ? 1 : std::min(1.0, passed / kMemory);
        progress_.frames_per_second += weight * (rate - progress_.frames_per_second);
        last_ = now;
        last_frames_ = progress_.frames;
        // By the size of the files: their frames are not known before they are read.
        double running = 0;
        for (const auto& child : children_)
            if (child->expected > 0)
                running += child->run->clip.weight() *
                           std::min(1.0, static_cast<double>(child->frames) / static_cast<double>(child->expected));
        const double elapsed = Seconds(now - begin_).count();
        const double done = bytes_done_ + running;
        progress_.seconds_left = done > 0 ? elapsed * std::max(0.0, bytes_left_ - running) / done : -1;
    }

    Archive& archive_;
    const PoolSettings settings_;
    const int jobs_;
    std::deque<const ClipRun*> waiting_;
    std::vector<std::unique_ptr<Child>> children_;
    PoolProgress progress_;
    std::int64_t made_ = 0;
    bool stopped_ = false;
    double bytes_left_ = 0, bytes_done_ = 0;  ///< weights of runs that are not done, and that this call did
    const Clock::time_point begin_ = Clock::now();
    Clock::time_point last_ = begin_;
    std::int64_t last_frames_ = 0;
};

}  // namespace

std::string thisProgram() {
    return fs::read_symlink("/proc/self/exe").string();
}

int processors() {
    cpu_set_t all;
    return ::sched_getaffinity(0, sizeof all, &all) == 0 ? std::max(1, CPU_COUNT(&all)) : 1;
}

PoolEnd runClips(Archive& archive, std::span<const ClipRun> runs, const PoolSettings& settings, const Event& stop,
                 const std::function<void(const PoolProgress&)>& tick) {
    return Pool(archive, runs, settings).run(stop, tick);
}

std::string durationText(double seconds) {
    const std::int64_t whole = std::llround(seconds);
    if (whole < 120) return std::to_string(whole) + " s";
    if (whole < 120 * 60) return std::to_string((whole + 30) / 60) + " min";
    if (whole < 48 * 3600) return std::to_string((whole + 1800) / 3600) + " h";
    return std::to_string((whole + 43200) / 86400) + " days";
}

std::string progressText(const PoolProgress& progress) {
    std::array<char, 200> text{};
    const auto length = static_cast<std::size_t>(std::snprintf(text.data(), text.size(), "%lld of %lld clips",
                                                               static_cast<long long>(progress.done),
                                                               static_cast<long long>(progress.runs)));
    std::string line(text.data(), length);
    if (progress.failed > 0) line += ", " + std::to_string(progress.failed) + " failed";
    if (progress.running > 0) line += ", " + std::to_string(progress.running) + " running";
    if (progress.frames_per_second > 0)
        line += ", " + std::to_string(std::llround(progress.frames_per_second)) + " frames/s";
    if (progress.seconds_left >= 0) line += ", " + durationText(progress.seconds_left) + " left";
    return line;
}

}  // namespace fleifeisa::host
