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
    ::signal(SIGPIPE, SIG_IGN);
}

Supervisor::Supervisor() {
    const sigset_t set = handledSignals();
    signals_ = Fd(::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
}

void Supervisor::add(std::unique_ptr<Camera> camera) {
    cameras_.push_back(std::move(camera));
    cameras_.back()->start(done_);
}

void Supervisor::remove(Camera& camera) {
    camera.stop();
    std::erase_if(cameras_, [&camera](const auto& one) { return one.get() == &camera; });
}

bool Supervisor::allDone() const {
    return std::all_of(cameras_.begin(), cameras_.end(), [](const auto& camera) { return camera->done(); });
}

void Supervisor::handleSignals(const std::function<void()>& reload) {
    signalfd_siginfo info{};
    while (::read(signals_.get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        const int number = static_cast<int>(info.ssi_signo);
        if (number == SIGHUP && reload) {
            if (!stopping_) reload();
            continue;
        }
        if (stopping_) {
            showProgress("");
            killAllChildren();
            removeLeftovers();
            ::_exit(128 + number);
        }
        stopping_ = true;
        logInfo("", "ending; a second signal ends at once");
        for (const auto& camera : cameras_) camera->stop();
    }
}

int Supervisor::run(const std::function<void()>& tick, const std::function<void()>& reload) {
    constexpr int kTickMilliseconds = 200;
    while (!allDone()) {
        std::array<pollfd, 2> items = {{{signals_.get(), POLLIN, 0}, {done_.fd(), POLLIN, 0}}};
        ::poll(items.data(), items.size(), tick ? kTickMilliseconds : -1);
        if (items[1].revents != 0) done_.clear();
        handleSignals(reload);
        if (tick) tick();
    }
    for (const auto& camera : cameras_)
        if (camera->exitCode() != 0) return camera->exitCode();
    return 0;
}

}  // namespace fleifeisa::host
