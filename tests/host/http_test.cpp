// The web server without its routes: answers, what a handler that fails costs, and long responses nobody feeds.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <filesystem>
#include <thread>

#include "common/log.h"
#include "http/server.h"

namespace fleifeisa::host {
namespace {

/// A connection that has asked for a path.
class Client {
 public:
    Client(int port, const std::string& path) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const timeval limit{20, 0};
        ::setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        EXPECT_EQ(::connect(socket_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        const std::string request = "GET " + path + " HTTP/1.0\r\nHost: localhost\r\n\r\n";
        EXPECT_EQ(::send(socket_.get(), request.data(), request.size(), 0), static_cast<ssize_t>(request.size()));
    }
    /// All that comes until the server closes.
    std::string all() const {
        std::string text;
        char buffer[4096];
        for (ssize_t n = 0; (n = ::recv(socket_.get(), buffer, sizeof buffer, 0)) > 0;)
            text.append(buffer, static_cast<std::size_t>(n));
        return text;
    }

 private:
    Fd socket_;
};

/// Says one word when it is told to, and nothing before.
class Idle : public HttpStream {
 public:
    explicit Idle(const std::atomic<bool>& told) : told_(told) {}
    std::size_t read(std::span<char> to) override {
        if (!ready()) return 0;
        said_ = true;
        return std::string_view("at last").copy(to.data(), to.size());
    }
    bool ready() override { return told_ && !said_; }
    bool over() override { return said_; }

 private:
    const std::atomic<bool>& told_;
    bool said_ = false;
};

template <class Condition>
bool within(Condition&& condition) {
    const auto limit = Clock::now() + std::chrono::seconds(20);
    while (!condition() && Clock::now() < limit) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return condition();
}

std::ptrdiff_t threads() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

TEST(Http, WhatAHandlerDoesBecomesAnAnswer) {
    std::jthread other;
    HttpServer server({}, [&other](const std::shared_ptr<const HttpRequest>& request, HttpAnswer answer) {
        const std::string& path = request->path;
        if (path == "/refuses") throw HttpError(409, "not now");
        if (path == "/breaks") throw std::runtime_error("a detail");
        if (path == "/later") {
            other = std::jthread([answer] { answer(jsonResponse("{\"late\":1}")); });
            return;
        }
        HttpResponse response = jsonResponse("{\"path\":\"" + path + "\"}");
        response.headers = {{"X-Good", "yes"}, {"X-Split", "a\r\nX-Evil: yes"}};
        answer(response);
        if (path == "/twice") answer(errorResponse(500, "the second one"));
    });
    server.start();
    struct Row {
        const char *path, *status, *body;
    };
    const Row rows[] = {{"/plain%20text", " 200 ", R"({"path":"/plain text"})"},
                        {"/refuses", " 409 ", R"({"status":409,"error":"not now"})"},
                        {"/breaks", " 500 ", "something failed; the log says what"},
                        {"/twice", " 200 ", R"({"path":"/twice"})"},
                        {"/later", " 200 ", R"({"late":1})"},
                        {"/breaks", " 500 ", "something failed"},
                        {"/plain", " 200 ", R"({"path":"/plain"})"}};
    for (const Row& row : rows) {
        const std::string answer = Client(server.port(), row.path).all();
        EXPECT_EQ(answer.find(row.status), 8u) << answer;
        EXPECT_NE(answer.find(row.body), std::string::npos) << answer;
        EXPECT_EQ(answer.find("a detail"), std::string::npos) << "details stay in the log";
        EXPECT_EQ(answer.find("X-Evil"), std::string::npos);
    }
    EXPECT_NE(Client(server.port(), "/x").all().find("X-Good: yes"), std::string::npos);
    EXPECT_EQ(server.counts().faults, 2);
    int logged = 0;
    for (const LogLine& line : lastLogLines(0)) logged += line.message == "web: a detail";
    EXPECT_GE(logged, 1);
}

/// None of them takes a thread, or holds the others up; who goes away is noticed though there is nothing to send.
TEST(Http, AHundredIdleStreams) {
    constexpr int kStreams = 100;
    std::atomic<bool> told{false};
    HttpSettings settings;
    settings.most_per_address = kStreams + 20;
    HttpServer server(settings, [&told](const std::shared_ptr<const HttpRequest>& request, const HttpAnswer& answer) {
        if (request->path != "/stream") return answer(jsonResponse("{}"));
        HttpResponse response;
        response.stream = std::make_shared<Idle>(told);
        answer(response);
    });
    server.start();
    const auto before = threads();
    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < kStreams; ++i) clients.push_back(std::make_unique<Client>(server.port(), "/stream"));
    ASSERT_TRUE(within([&] { return server.counts().streams == kStreams; }));
    EXPECT_EQ(threads(), before);
    EXPECT_NE(Client(server.port(), "/").all().find(" 200 "), std::string::npos);
    clients.resize(kStreams / 2);
    EXPECT_TRUE(within([&] { return server.counts().streams == kStreams / 2; }));
    told = true;
    server.wake();
    for (const auto& client : clients) EXPECT_TRUE(client->all().ends_with("at last"));
    clients.clear();
    EXPECT_TRUE(within([&] { return server.counts().streams == 0 && server.counts().connections == 0; }));
    EXPECT_EQ(server.counts().refused, 0);
}

}  // namespace
}  // namespace fleifeisa::host
