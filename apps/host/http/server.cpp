#include "http/server.h"

#include <arpa/inet.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "common/log.h"

namespace fleifeisa::host {
namespace {

constexpr double kFirstHeaderSeconds = 10;  // from the connection on, TLS included
constexpr double kNextHeaderSeconds = 60;   // on a connection that was used
constexpr double kRefusedSeconds = 1;       // for those who get 503
constexpr double kBodySeconds = 30;         // for all of it
constexpr unsigned kSilentSeconds = 60;     // without a byte taken
constexpr unsigned kBeyond = 64;       // connections beyond the limit that get 503; the next ones wait or are closed
constexpr unsigned kBeyondOfOne = 16;  // the same of one address
constexpr std::size_t kMemory = 32 << 10;  // of a connection, headers included
constexpr std::size_t kStreamBlock = 64 << 10;
constexpr std::size_t kLongestValue = 8 << 10;

std::string addressText(const sockaddr* address) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (address && address->sa_family == AF_INET)
        ::inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(address)->sin_addr, text.data(), text.size());
    else if (address && address->sa_family == AF_INET6)
        ::inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr, text.data(), text.size());
    return text.data();
}

/// The nearest one that the proxy names: what stands before it was written by the client.
std::string lastOfList(const std::string& list) {
    std::string last = list.substr(list.rfind(',') + 1);  // npos + 1 is 0
    std::erase(last, ' ');
    return last;
}

}  // namespace

struct HttpServer::Peer {
    MHD_Connection* connection = nullptr;
    int socket = -1;
    std::string address;
    bool refused = false;
    bool used = false;                       ///< had a request
    bool in_request = false;                 ///< from the end of its header on
    Clock::time_point since = Clock::now();  ///< of what it is in
    bool uploading = false;
    std::list<Peer>::iterator self;
};

/// One request and its answer.
struct HttpServer::Exchange {
    MHD_Connection* connection = nullptr;
    Peer* peer = nullptr;
    std::shared_ptr<HttpRequest> request = std::make_shared<HttpRequest>();
    std::optional<HttpResponse> response;  ///< guarded by Posted::mutex
    std::shared_ptr<HttpStream> stream;
    bool dispatched = false, suspended = false, over = false;
    bool hung_up = false;  ///< the other side has closed
};

struct HttpServer::Posted {
    std::mutex mutex;
    std::vector<std::weak_ptr<Exchange>> answered;
    const Event* wake = nullptr;  ///< null: the server is gone
};

struct HttpServer::Calls {
    static MHD_Result access(void* self, MHD_Connection* connection, const char* url, const char* method, const char*,
                             const char* data, std::size_t* size, void** state) {
        return static_cast<MHD_Result>(
            static_cast<HttpServer*>(self)->access(connection, url, method, data, size, state));
    }
    static void completed(void* self, MHD_Connection*, void** state, MHD_RequestTerminationCode) {
        auto* exchange = static_cast<Exchange*>(*state);
        if (!exchange) return;
        *state = nullptr;
        exchange->over = true;
        if (exchange->stream) --static_cast<HttpServer*>(self)->counts_.streams;
        exchange->peer->in_request = exchange->peer->uploading = false;
        exchange->peer->used = true;
        exchange->peer->since = Clock::now();
        static_cast<HttpServer*>(self)->exchanges_.erase(exchange);
    }
    static void connection(void* self, MHD_Connection* connection, void** context,
                           MHD_ConnectionNotificationCode code) {
        if (code == MHD_CONNECTION_NOTIFY_STARTED)
            static_cast<HttpServer*>(self)->arrived(connection, context);
        else
            static_cast<HttpServer*>(self)->left(context);
    }
    static ssize_t read(void* state, std::uint64_t, char* to, std::size_t most) {
        auto* exchange = static_cast<Exchange*>(state);
        if (exchange->hung_up) return MHD_CONTENT_READER_END_WITH_ERROR;
        if (exchange->stream->over()) return MHD_CONTENT_READER_END_OF_STREAM;
        const std::size_t count = exchange->stream->read({to, most});
        if (count > 0) return static_cast<ssize_t>(count);
        if (exchange->stream->over()) return MHD_CONTENT_READER_END_OF_STREAM;
        exchange->suspended = true;
        MHD_suspend_connection(exchange->connection);
        return 0;
    }
    static MHD_Result collect(void* values, MHD_ValueKind kind, const char* name, const char* value) {
        std::string key = name ? name : "", text = value ? value : "";
        if (kind == MHD_HEADER_KIND)
            std::ranges::transform(key, key.begin(),
                                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
        if (text.size() <= kLongestValue)
            static_cast<HttpRequest::Values*>(values)->emplace(std::move(key), std::move(text));
        return MHD_YES;
    }
    static void logged(void*, const char* format, va_list arguments) {
        std::array<char, 400> text{};
        std::vsnprintf(text.data(), text.size(), format, arguments);
        std::string line = text.data();
        while (line.ends_with('\n')) line.pop_back();
        logDebug("", "http: " + line);
    }
};

HttpServer::HttpServer(HttpSettings settings, Handler handler)
    : settings_(std::move(settings)), handler_(std::move(handler)), posted_(std::make_shared<Posted>()) {
    posted_->wake = &wake_;
    Fd socket = listenSocket();
    const bool tls = !settings_.certificate.empty();
    std::vector<MHD_OptionItem> options = {
        {MHD_OPTION_CONNECTION_LIMIT, settings_.most_connections + static_cast<int>(kBeyond), nullptr},
        {MHD_OPTION_CONNECTION_TIMEOUT, kSilentSeconds, nullptr},
        {MHD_OPTION_CONNECTION_MEMORY_LIMIT, static_cast<std::intptr_t>(kMemory), nullptr},
        {MHD_OPTION_STRICT_FOR_CLIENT, 1, nullptr},
    };
    if (!settings_.proxy)
        options.push_back(
            {MHD_OPTION_PER_IP_CONNECTION_LIMIT, settings_.most_per_address + static_cast<int>(kBeyondOfOne), nullptr});
    if (tls) {
        options.push_back({MHD_OPTION_HTTPS_MEM_CERT, 0, const_cast<char*>(settings_.certificate.c_str())});
        options.push_back({MHD_OPTION_HTTPS_MEM_KEY, 0, const_cast<char*>(settings_.key.c_str())});
    }
    options.push_back({MHD_OPTION_END, 0, nullptr});
    unsigned flags = MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_ERROR_LOG;
    if (tls) flags |= MHD_USE_TLS;
    // The order matters: whoever logs comes first.
    daemon_ = MHD_start_daemon(flags, 0, nullptr, nullptr, &Calls::access, this, MHD_OPTION_EXTERNAL_LOGGER,
                               &Calls::logged, nullptr, MHD_OPTION_LISTEN_SOCKET, socket.get(),
                               MHD_OPTION_NOTIFY_COMPLETED, &Calls::completed, this, MHD_OPTION_NOTIFY_CONNECTION,
                               &Calls::connection, this, MHD_OPTION_ARRAY, options.data(), MHD_OPTION_END);
    if (!daemon_)
        throw std::runtime_error(tls ? "the web server cannot start: certificate and key do not fit"
                                     : "the web server cannot start");
    socket.release();  // the daemon's now
}

Fd HttpServer::listenSocket() {
    sockaddr_storage address{};
    socklen_t length = 0;
    auto* four = reinterpret_cast<sockaddr_in*>(&address);
    auto* six = reinterpret_cast<sockaddr_in6*>(&address);
    if (::inet_pton(AF_INET, settings_.address.c_str(), &four->sin_addr) == 1) {
        four->sin_family = AF_INET;
        four->sin_port = htons(static_cast<std::uint16_t>(settings_.port));
        length = sizeof *four;
    } else if (::inet_pton(AF_INET6, settings_.address.c_str(), &six->sin6_addr) == 1) {
        six->sin6_family = AF_INET6;
        six->sin6_port = htons(static_cast<std::uint16_t>(settings_.port));
        length = sizeof *six;
    } else {
        throw std::runtime_error(settings_.address + " is no address to listen at");
    }
    Fd socket(::socket(address.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1, off = 0;
    ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    // "::" is every address, IPv4 too.
    if (address.ss_family == AF_INET6) ::setsockopt(socket.get(), IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
    constexpr int kWaiting = 512;
    if (::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        ::listen(socket.get(), kWaiting) != 0)
        throw std::runtime_error(settings_.address + " port " + std::to_string(settings_.port) + ": " +
                                 std::strerror(errno));
    length = sizeof address;
    ::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.ss_family == AF_INET ? four->sin_port : six->sin6_port);
    return socket;
}

void HttpServer::start() {
    thread_ = std::thread(&HttpServer::run, this);
}

HttpServer::~HttpServer() {
    stopping_ = true;
    wake_.set();
    if (thread_.joinable()) thread_.join();
    {
        const std::lock_guard lock(posted_->mutex);
        posted_->wake = nullptr;
    }
    if (daemon_) MHD_stop_daemon(daemon_);
}

// ---- The loop ----

void HttpServer::run() {
    const int events = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd;
    Clock::time_point next_sweep = Clock::now();
    while (!stopping_) {
        MHD_UNSIGNED_LONG_LONG wait = 1000;
        constexpr MHD_UNSIGNED_LONG_LONG kLongest = 1000;
        if (MHD_get_timeout(daemon_, &wait) != MHD_YES || wait > kLongest) wait = kLongest;
        std::array<pollfd, 2> items = {{{events, POLLIN, 0}, {wake_.fd(), POLLIN, 0}}};
        ::poll(items.data(), items.size(), static_cast<int>(wait));
        if (items[1].revents != 0) wake_.clear();
        const bool due = Clock::now() >= next_sweep;
        if (due) {
            next_sweep = Clock::now() + std::chrono::seconds(1);
            sweep();
        }
        if (due || items[1].revents != 0) resume();
        MHD_run(daemon_);
    }
    closeAll();
}

/// Those whose answer has come, and streams that have something to say.
void HttpServer::resume() {
    std::vector<std::weak_ptr<Exchange>> answered;
    {
        const std::lock_guard lock(posted_->mutex);
        answered.swap(posted_->answered);
    }
    const auto wake = [](Exchange& exchange) {
        exchange.suspended = false;
        MHD_resume_connection(exchange.connection);
    };
    for (const auto& weak : answered)
        if (const auto exchange = weak.lock(); exchange && exchange->suspended && !exchange->over) wake(*exchange);
    for (auto& [raw, exchange] : exchanges_)
        if (exchange->suspended && exchange->stream && (exchange->stream->over() || exchange->stream->ready()))
            wake(*exchange);
}

/// Those who take too long. Their sockets are shut down; the library then finds them closed.
void HttpServer::sweep() {
    const Clock::time_point now = Clock::now();
    for (Peer& peer : peers_) {
        const double waited = Seconds(now - peer.since).count();
        const double patience = peer.refused ? kRefusedSeconds : peer.used ? kNextHeaderSeconds : kFirstHeaderSeconds;
        if ((!peer.in_request && waited > patience) || (peer.uploading && waited > kBodySeconds)) {
            if (!peer.used && !peer.refused) ++counts_.refused;
            ::shutdown(peer.socket, SHUT_RDWR);
        }
    }
    // Of what is suspended the library does not notice the end.
    for (auto& [raw, exchange] : exchanges_) {
        if (!exchange->suspended || !exchange->stream) continue;
        pollfd item{exchange->peer->socket, POLLRDHUP, 0};
        if (::poll(&item, 1, 0) <= 0 || (item.revents & (POLLRDHUP | POLLHUP | POLLERR)) == 0) continue;
        exchange->hung_up = true;
        exchange->suspended = false;
        MHD_resume_connection(exchange->connection);
    }
}

bool HttpServer::anySuspended() const {
    return std::ranges::any_of(exchanges_, [](const auto& each) { return each.second->suspended; });
}

/// The library demands that nothing is suspended when it ends.
void HttpServer::closeAll() {
    for (Peer& peer : peers_) ::shutdown(peer.socket, SHUT_RDWR);
    for (int turn = 0; turn < 100 && (turn == 0 || anySuspended()); ++turn) {
        for (auto& [raw, exchange] : exchanges_) {
            if (!exchange->suspended) continue;
            {
                const std::lock_guard lock(posted_->mutex);
                if (!exchange->stream && !exchange->response) exchange->response = errorResponse(503, "the host ends");
            }
            exchange->suspended = false;
            MHD_resume_connection(exchange->connection);
        }
        MHD_run(daemon_);
    }
}

// ---- What the library calls ----

void HttpServer::arrived(MHD_Connection* connection, void** context) {
    const auto* socket = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
    const auto* address = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
    Peer& peer = peers_.emplace_back();
    peer.self = std::prev(peers_.end());
    peer.connection = connection;
    peer.socket = socket ? socket->connect_fd : -1;
    peer.address = address ? addressText(address->client_addr) : "";
    const int of_one = ++by_address_[peer.address];
    peer.refused = peers_.size() > static_cast<std::size_t>(settings_.most_connections) ||
                   (!settings_.proxy && of_one > settings_.most_per_address);
    ++counts_.accepted;
    if (peer.refused) ++counts_.refused;
    counts_.connections = static_cast<std::int64_t>(peers_.size());
    *context = &peer;
}

void HttpServer::left(void** context) {
    auto* peer = static_cast<Peer*>(*context);
    if (!peer) return;
    *context = nullptr;
    if (const auto found = by_address_.find(peer->address); found != by_address_.end() && --found->second == 0)
        by_address_.erase(found);
    peers_.erase(peer->self);
    counts_.connections = static_cast<std::int64_t>(peers_.size());
}

int HttpServer::access(MHD_Connection* connection, const char* url, const char* method, const char* data,
                       std::size_t* size, void** state) {
    if (!*state) {
        const auto* context = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
        const auto exchange = std::make_shared<Exchange>();
        exchange->connection = connection;
        exchange->peer = static_cast<Peer*>(context->socket_context);
        exchanges_[exchange.get()] = exchange;
        *state = exchange.get();
        Peer& peer = *exchange->peer;
        peer.in_request = peer.uploading = true;
        peer.since = Clock::now();
        ++counts_.requests;
        if (peer.refused) {
            HttpResponse busy = errorResponse(503, "too many connections");
            busy.headers = {{"Retry-After", "5"}, {"Connection", "close"}};
            return queue(*exchange, std::move(busy));
        }
        begin(*exchange, url, method);
        const HttpRequest& request = *exchange->request;
        const std::string length = request.header("content-length");
        if (!request.header("transfer-encoding").empty())
            return queue(*exchange, errorResponse(411, "a body needs a Content-Length"));
        if (!length.empty() && std::strtoull(length.c_str(), nullptr, 10) > settings_.most_body)
            return queue(*exchange, errorResponse(413, "the body is too large"));
        return MHD_YES;
    }
    const std::shared_ptr<Exchange> exchange = exchanges_.at(static_cast<Exchange*>(*state));
    if (*size > 0) {
        if (exchange->request->body.size() + *size > settings_.most_body) return MHD_NO;
        exchange->request->body.append(data, *size);
        *size = 0;
        return MHD_YES;
    }
    exchange->peer->uploading = false;
    if (!std::exchange(exchange->dispatched, true)) dispatch(exchange);
    std::optional<HttpResponse> response;
    {
        const std::lock_guard lock(posted_->mutex);
        if (exchange->response)
            response = std::exchange(exchange->response, std::nullopt);
        else
            exchange->suspended = true;  // before an answer can look
    }
    if (response) return queue(*exchange, std::move(*response));
    MHD_suspend_connection(connection);
    return MHD_YES;
}

void HttpServer::begin(Exchange& exchange, const char* url, const char* method) const {
    HttpRequest& request = *exchange.request;
    request.method = std::strcmp(method, "HEAD") == 0 ? "GET" : method;
    request.path = url;
    if (!settings_.base.empty() && request.path.starts_with(settings_.base + '/'))
        request.path.erase(0, settings_.base.size());
    MHD_get_connection_values(exchange.connection, MHD_GET_ARGUMENT_KIND, &Calls::collect, &request.query);
    MHD_get_connection_values(exchange.connection, MHD_HEADER_KIND, &Calls::collect, &request.headers);
    request.peer = exchange.peer->address;
    request.secure = !settings_.certificate.empty();
    if (!settings_.proxy) return;
    if (const std::string client = lastOfList(request.header("x-forwarded-for")); !client.empty())
        request.peer = client;
    request.secure = request.secure || lastOfList(request.header("x-forwarded-proto")) == "https";
}

void HttpServer::dispatch(const std::shared_ptr<Exchange>& exchange) {
    const HttpAnswer answer = [posted = posted_, weak = std::weak_ptr<Exchange>(exchange)](HttpResponse response) {
        const auto strong = weak.lock();
        const std::lock_guard lock(posted->mutex);
        if (!strong || strong->response) return;
        strong->response = std::move(response);
        posted->answered.push_back(weak);
        if (posted->wake) posted->wake->set();
    };
    try {
        handler_(exchange->request, answer);
    } catch (const HttpError& error) {
        answer(errorResponse(error.status, error.what()));
    } catch (const std::exception& error) {
        ++counts_.faults;
        logError("", std::string("web: ") + error.what());
        answer(errorResponse(500, "something failed; the log says what"));
    }
}

int HttpServer::queue(Exchange& exchange, HttpResponse response) {
    MHD_Response* made = nullptr;
    if (response.stream) {
        exchange.stream = response.stream;
        ++counts_.streams;
        made = MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, kStreamBlock, &Calls::read, &exchange, nullptr);
    } else if (response.file) {
        made = MHD_create_response_from_fd_at_offset64(response.length, response.file->release(), response.offset);
    } else if (!response.lasting.empty()) {
        made = MHD_create_response_from_buffer(response.lasting.size(), const_cast<char*>(response.lasting.data()),
                                               MHD_RESPMEM_PERSISTENT);
    } else {
        made = MHD_create_response_from_buffer(response.body.size(), response.body.data(), MHD_RESPMEM_MUST_COPY);
    }
    if (!made) return MHD_NO;
    if (!response.type.empty()) MHD_add_response_header(made, "Content-Type", response.type.c_str());
    // The library refuses values with line ends: such a header is left out.
    for (const auto& [name, value] : response.headers) MHD_add_response_header(made, name.c_str(), value.c_str());
    const MHD_Result result = MHD_queue_response(exchange.connection, static_cast<unsigned>(response.status), made);
    MHD_destroy_response(made);
    return result;
}

}  // namespace fleifeisa::host
