#include "camera/supervisor.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>

#include <algorithm>
#include <array>

#include "common/leftovers.h"
#include "common/log.h"

namespace fleifeisa::host {
namespace {

/// After this an end in order has become one at once. Cameras need about two seconds where everything hangs.
constexpr Clock::duration kLongestStop = std::chrono::milliseconds(2800);

sigset_t handledSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set, number);
    return set;
}

}  // namespace

void blockSignals() {
    const sigset_t set = handledSignals();
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
    // A reader that went away, a limit on the size of files: errors of a write, not the end of all cameras.
    ::signal(SIGPIPE, SIG_IGN);
    ::signal(SIGXFSZ, SIG_IGN);
}

Supervisor::Supervisor() {
    const sigset_t set = handledSignals();
    signals_ = Fd(::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    thread_ = std::thread(&Supervisor::takeSignals, this);
}

Supervisor::~Supervisor() {
    leaving_.clear();
    cameras_.clear();  // whose threads may hang: the signal thread still watches
    over_.set();
    thread_.join();
}

/// What still hangs is left behind. Encoders complete their files by themselves, unless all is to go.
namespace {

[[noreturn]] void endAtOnce(int status, bool completed_by_themselves) {
    showProgress("");
    killAllChildren();
    removeLeftovers(!completed_by_themselves);
    ::_exit(status);
}

}  // namespace

/// The thread of the signals. It waits for nothing else.
void Supervisor::takeSignals() {
    Clock::time_point deadline = Clock::time_point::max();
    int first = 0;
    for (;;) {
        std::array<pollfd, 2> items = {{{signals_.get(), POLLIN, 0}, {over_.fd(), POLLIN, 0}}};
        ::poll(items.data(), items.size(), first == 0 ? -1 : pollTimeout(deadline));
        if (items[1].revents != 0) return;
        signalfd_siginfo info{};
        while (::read(signals_.get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
            const int number = static_cast<int>(info.ssi_signo);
            if (number == SIGHUP) {
                reload_ = true;
            } else if (first != 0) {
                endAtOnce(128 + number, false);
            } else {
                first = number;
                deadline = Clock::now() + kLongestStop;
                stopping_ = true;
            }
            woken_.set();
        }
        if (first != 0 && Clock::now() >= deadline) {
            logError("", "not everything ended in time: what hangs is left behind");
            endAtOnce(128 + first, true);
        }
    }
}

void Supervisor::add(std::unique_ptr<Camera> camera) {
    cameras_.push_back(std::move(camera));
    cameras_.back()->start(woken_);
}

void Supervisor::remove(Camera& camera, std::function<void(const Camera&)> ended) {
    camera.stop();
    const auto found = std::ranges::find(cameras_, &camera, &std::unique_ptr<Camera>::get);
    leaving_.push_back({std::move(*found), std::move(ended)});
    cameras_.erase(found);
}

/// Cameras that were removed and have ended by now.
void Supervisor::letGo() {
    for (std::size_t i = 0; i < leaving_.size();) {
        if (!leaving_[i].camera->done()) {
            ++i;
            continue;
        }
        const Leaving gone = std::move(leaving_[i]);
        leaving_.erase(leaving_.begin() + static_cast<std::ptrdiff_t>(i));
        if (gone.ended) gone.ended(*gone.camera);
    }
}

bool Supervisor::anyLeaving(const std::function<bool(const CameraConfig&)>& like) const {
    return std::ranges::any_of(leaving_, [&like](const Leaving& one) { return like(one.camera->config()); });
}

bool Supervisor::allDone() const {
    return leaving_.empty() &&
           std::all_of(cameras_.begin(), cameras_.end(), [](const auto& camera) { return camera->done(); });
}

void Supervisor::post(std::function<void()> job) {
    const std::lock_guard lock(mutex_);
    jobs_.push_back(std::move(job));
    woken_.set();
}

int Supervisor::run(const std::function<void()>& tick, const std::function<void()>& reload) {
    constexpr int kTickMilliseconds = 200;
    bool told = false;
    while (!allDone()) {
        pollfd item{woken_.fd(), POLLIN, 0};
        ::poll(&item, 1, tick ? kTickMilliseconds : -1);
        woken_.clear();
        if (stopping_ && !std::exchange(told, true)) {
            logInfo("", "ending; a second signal ends at once");
            for (const auto& camera : cameras_) camera->stop();
        }
        if (reload_.exchange(false) && reload && !stopping_) reload();
        std::vector<std::function<void()>> jobs;
        {
            const std::lock_guard lock(mutex_);
            jobs.swap(jobs_);
        }
        for (const auto& job : jobs)
            if (!stopping_) job();
        letGo();
        if (tick) tick();
    }
    // Their decoders end, and hand on their last packets, before what takes those goes.
    for (const auto& camera : cameras_) camera->joinSource();
    for (const auto& camera : cameras_)
        if (camera->exitCode() != 0) return camera->exitCode();
    return 0;
}

}  // namespace fleifeisa::host
