// Ctrl-C for verbs that work through many clips.
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>

#include <array>

#include "archive/clip_pool.h"
#include "common/leftovers.h"
#include "common/log.h"
#include "common/process.h"

namespace fleifeisa::host {

Interrupts::Interrupts() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGINT, SIGTERM}) sigaddset(&set, number);
    signals_ = Fd(::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    thread_ = std::thread([this] {
        for (bool first = true;;) {
            std::array<pollfd, 2> items = {{{signals_.get(), POLLIN, 0}, {over_.fd(), POLLIN, 0}}};
            ::poll(items.data(), items.size(), -1);
            if (items[1].revents != 0) return;
            signalfd_siginfo info{};
            if (::read(signals_.get(), &info, sizeof info) != static_cast<ssize_t>(sizeof info)) continue;
            if (!first) {
                showProgress("");
                killAllChildren();
                removeLeftovers(true);
                ::_exit(128 + static_cast<int>(info.ssi_signo));
            }
            first = false;
            stop_.set();
        }
    });
}

Interrupts::~Interrupts() {
    over_.set();
    thread_.join();
}

bool Interrupts::stopped() const {
    pollfd item{stop_.fd(), POLLIN, 0};
    return ::poll(&item, 1, 0) > 0;
}

}  // namespace fleifeisa::host
