// An HTTP server in one thread: requests, long responses, and what keeps strangers from exhausting it.
//
// A connection costs a descriptor and some 64 kB at most, never a thread. What a stranger may do is bounded: so many
// connections in all and from one address (the next ones get 503, those beyond are closed), ten seconds for the first
// header as a whole, half a minute for a body of at most a megabyte, a minute without a byte read.
#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "common/fd.h"
#include "http/message.h"

struct MHD_Connection;
struct MHD_Daemon;

namespace fleifeisa::host {

struct HttpSettings {
    std::string address = "127.0.0.1";  ///< to listen at, IPv4 or IPv6
    int port = 0;                       ///< 0: any
    int most_connections = 256;         ///< in all ...
    int most_per_address = 64;          ///< ... and from one address, which is not applied to a trusted proxy
    std::string certificate, key;       ///< PEM texts, "": no TLS
    bool proxy = false;                 ///< what connects is a proxy: X-Forwarded-For and -Proto are believed
    std::string base;                   ///< path in front of all paths, "/eye" or ""
    std::size_t most_body = 1 << 20;    ///< bytes
};

struct HttpCounts {
    std::atomic<std::int64_t> connections{0}, accepted{0}, refused{0}, requests{0}, faults{0}, streams{0};
};

class HttpServer {
 public:
    /// Called in the server's thread: long work belongs elsewhere. HttpError and other exceptions become answers.
    using Handler = std::function<void(std::shared_ptr<const HttpRequest>, HttpAnswer)>;

    /// Begins to listen; requests are taken from start() on. @throws std::runtime_error
    HttpServer(HttpSettings settings, Handler handler);
    /// Ends all connections, long responses, too.
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    void start();
    int port() const { return port_; }
    /// Streams may have something to say. From any thread.
    void wake() const { wake_.set(); }
    const HttpCounts& counts() const { return counts_; }

 private:
    struct Peer;
    struct Exchange;
    struct Calls;  ///< what the library calls

    Fd listenSocket();
    void run();
    void resume();
    void sweep();
    void closeAll();
    bool anySuspended() const;
    int access(MHD_Connection* connection, const char* url, const char* method, const char* data, std::size_t* size,
               void** state);
    void begin(Exchange& exchange, const char* url, const char* method) const;
    void dispatch(const std::shared_ptr<Exchange>& exchange);
    int queue(Exchange& exchange, HttpResponse response);
    void arrived(MHD_Connection* connection, void** context);
    void left(void** context);

    const HttpSettings settings_;
    const Handler handler_;
    HttpCounts counts_;
    int port_ = 0;
    MHD_Daemon* daemon_ = nullptr;
    Event wake_;
    std::atomic<bool> stopping_{false};
    std::thread thread_;

    // the thread's own
    std::list<Peer> peers_;
    std::map<std::string, int> by_address_;
    std::map<Exchange*, std::shared_ptr<Exchange>> exchanges_;

    struct Posted;
    std::shared_ptr<Posted> posted_;  ///< answers from other threads, which may outlive the server
};

}  // namespace fleifeisa::host
