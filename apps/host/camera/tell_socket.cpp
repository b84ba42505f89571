#include "camera/tell_socket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "common/log.h"

namespace fleifeisa::host {
namespace {

constexpr const char* kName = "tell";
constexpr double kPatience = 1;  ///< seconds for the other side
constexpr std::size_t kMostMessage = 1024;

Fd openDirectory(const std::string& path) {
    return Fd(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

/// A socket's path holds 107 bytes, a state directory's may have more: it is named by its descriptor.
sockaddr_un addressIn(const Fd& directory) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/%s", directory.get(), kName);
    return address;
}

const sockaddr* generic(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

bool readable(int fd, Clock::time_point deadline) {
    pollfd item{fd, POLLIN, 0};
    return ::poll(&item, 1, pollTimeout(deadline)) > 0;
}

}  // namespace

TellSocket::TellSocket(const std::string& directory, Take take)
    : take_(std::move(take)), directory_(openDirectory(directory)) {
    socket_ = Fd(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const sockaddr_un address = addressIn(directory_);
    ::unlinkat(directory_.get(), kName, 0);  // of an earlier host: the directory is locked
    if (::bind(socket_.get(), generic(address), sizeof address) != 0 ||
        ::fchmodat(directory_.get(), kName, 0660, 0) != 0 || ::listen(socket_.get(), 8) != 0) {
        logWarning("", directory + "/" + kName + ": " + std::strerror(errno) + "; nobody can tell of events");
        return;
    }
    thread_ = std::thread(&TellSocket::run, this);
}

TellSocket::~TellSocket() {
    over_.set();
    if (!thread_.joinable()) return;
    thread_.join();
    ::unlinkat(directory_.get(), kName, 0);
}

/// One after another, each for a second at most.
void TellSocket::run() {
    for (;;) {
        std::array<pollfd, 2> items = {{{over_.fd(), POLLIN, 0}, {socket_.get(), POLLIN, 0}}};
        ::poll(items.data(), items.size(), -1);
        if (items[0].revents != 0) return;
        const Fd client(::accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (client) serve(client.get());
    }
}

void TellSocket::serve(int client) const {
    std::array<char, kMostMessage> bytes{};
    if (!readable(client, Clock::now() + seconds(kPatience))) return;
    const ssize_t length = ::recv(client, bytes.data(), bytes.size(), 0);
    if (length <= 0) return;
    const std::string message(bytes.data(), static_cast<std::size_t>(length));
    const std::size_t blank = message.find(' ');
    std::string answer = "expected a camera and a text of at most 500 bytes";
    if (blank != std::string::npos && blank + 1 < message.size() && message.size() - blank - 1 <= kMostText)
        answer = take_(message.substr(0, blank), message.substr(blank + 1));
    answer += '\n';  // an empty packet would look like an end
    ::send(client, answer.data(), answer.size(), MSG_NOSIGNAL);
}

std::string tellHost(const std::string& directory, const std::string& camera, const std::string& text) {
    const std::string message = camera + ' ' + text;
    if (text.empty() || text.size() > TellSocket::kMostText || message.size() > kMostMessage)
        return "expected a text of at most 500 bytes";
    const auto fail = [&directory](const std::string& what) -> std::string {
        throw std::runtime_error(directory + ": " + what);
    };
    const Fd place = openDirectory(directory);
    if (!place) return fail(std::strerror(errno));
    const Fd socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    const sockaddr_un address = addressIn(place);
    if (::connect(socket.get(), generic(address), sizeof address) != 0) return fail("no host runs here");
    if (::send(socket.get(), message.data(), message.size(), MSG_NOSIGNAL) < 0) return fail(std::strerror(errno));
    std::array<char, kMostMessage> bytes{};
    constexpr double kAnswerSeconds = 10;
    const bool came = readable(socket.get(), Clock::now() + seconds(kAnswerSeconds));
    const ssize_t length = came ? ::recv(socket.get(), bytes.data(), bytes.size(), 0) : 0;
    if (length <= 0) return fail("the host gave no answer");
    return {bytes.data(), static_cast<std::size_t>(length) - 1};
}

}  // namespace fleifeisa::host
