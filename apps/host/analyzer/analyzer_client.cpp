#include "analyzer/analyzer_client.h"

#include <poll.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "analyzer/reply.h"

namespace fleifeisa::host {
namespace {

constexpr std::size_t kLastLines = 5, kMaxLastWord = 300;

}  // namespace

AnalyzerClient::AnalyzerClient(const AnalyzerSettings& settings) {
    Process::Options options;
    const bool explains = !settings.explainer.empty();
    options.argv = {explains ? settings.explainer : settings.program, settings.infrared ? "IR" : "COLOR", "STREAMING",
                    std::to_string(settings.device), std::to_string(settings.analyzer_id)};
    if (!settings.root.empty()) options.environment.emplace_back("FLEIFEISA_ROOT", settings.root);
    options.pipe_in = options.pipe_out = options.pipe_err = true;
    options.socket_extra = explains;
    try {
        process_ = Process(options);
        questions_ = QuestionWire(std::move(process_.extra));
    } catch (const std::system_error& error) {
        throw AnalyzerError(std::string("the analyzer could not be started: ") + error.what());
    }
}

void AnalyzerClient::send(std::span<const char> bytes) {
    if (!bytes.empty()) outgoing_.push_back(bytes);
}

void AnalyzerClient::send(std::span<const std::uint8_t> bytes) {
    send(std::span<const char>(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

void AnalyzerClient::write() {
    while (!outgoing_.empty()) {
        std::span<const char>& front = outgoing_.front();
        const ssize_t count = ::write(process_.in.get(), front.data(), front.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0 && errno == EAGAIN) return;
        if (count < 0) gone();
        front = front.subspan(static_cast<std::size_t>(count));
        if (front.empty()) outgoing_.pop_front();
    }
}

void AnalyzerClient::read() {
    std::array<char, 1 << 16> chunk{};
    for (;;) {
        const ssize_t count = ::read(process_.out.get(), chunk.data(), chunk.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0 && errno == EAGAIN) return;
        if (count <= 0) gone();
        incoming_.append(chunk.data(), static_cast<std::size_t>(count));
        if (incoming_.size() > 2 * kMaxReplyBytes) throw AnalyzerError("the analyzer writes without an end");
        if (count < static_cast<ssize_t>(chunk.size())) return;
    }
}

void AnalyzerClient::gone() {
    const auto status = process_.wait(Clock::now() + std::chrono::seconds(1));
    throw AnalyzerError(status ? "the analyzer died: " + describeStatus(*status) : "the analyzer closed its output");
}

std::vector<std::string> AnalyzerClient::takeErrors() {
    std::array<char, 4096> chunk{};
    for (;;) {
        const ssize_t count = ::read(process_.err.get(), chunk.data(), chunk.size());
        if (count < 0 && errno == EINTR) continue;
        if (count == 0) process_.err.reset();
        if (count <= 0) break;
        error_text_.append(chunk.data(), static_cast<std::size_t>(count));
        if (error_text_.size() > (1u << 16)) error_text_.erase(0, error_text_.size() - (1u << 16));
    }
    std::vector<std::string> lines;
    for (std::size_t end = error_text_.find('\n'); end != std::string::npos; end = error_text_.find('\n')) {
        if (end > 0) lines.push_back(error_text_.substr(0, end));
        error_text_.erase(0, end + 1);
    }
    for (const std::string& line : lines) last_lines_.push_back(line.substr(0, kMaxLastWord));
    while (last_lines_.size() > kLastLines) last_lines_.pop_front();
    return lines;
}

std::string AnalyzerClient::lastWords() {
    if (process_.err) takeErrors();
    if (!error_text_.empty()) last_lines_.push_back(error_text_.substr(0, kMaxLastWord));  // without its line's end
    std::string text;
    for (const std::string& line : last_lines_) text += (text.empty() ? "" : "; ") + line;
    return text;
}

bool AnalyzerClient::nextReply(std::string& bytes) {
    try {
        const std::size_t length = replyLength(incoming_);
        if (length == 0) return false;
        bytes = incoming_.substr(0, length);
        incoming_.erase(0, length);
        return true;
    } catch (const std::runtime_error& error) {
        throw AnalyzerError(error.what());
    }
}

bool AnalyzerClient::shutdown(Clock::duration grace) {
    static constexpr std::string_view kMessage = "ANALYTICS.CARTRIDGE\r\nCommand: SHUTDOWN\r\n\r\n";
    const Clock::time_point deadline = Clock::now() + grace;
    send(std::span(kMessage.data(), kMessage.size()));
    try {
        while (!outgoing_.empty() && Clock::now() < deadline) {
            write();
            pollfd item{wantsWrite(), POLLOUT, 0};
            if (!outgoing_.empty()) ::poll(&item, 1, pollTimeout(deadline));
        }
    } catch (const AnalyzerError&) {
        return false;
    }
    process_.in.reset();
    const auto status = process_.wait(deadline);
    if (!status) process_.kill();
    return status == 0;
}

std::string frameHeader(int width, int height, std::int64_t time_ns, std::int64_t sequence) {
    char text[320];
    std::snprintf(text, sizeof text,
                  "ANALYTICS.CARTRIDGE\r\n"
                  "Content-Type: image/rgb\r\n"
                  "Content-Length: %lld\r\n"
                  "Image-width: %d\r\n"
                  "Image-height: %d\r\n"
                  "Timestamp: %lld.%09lld\r\n"
                  "Sequence-Number: %lld\r\n"
                  "\r\n",
                  3LL * width * height, width, height, static_cast<long long>(time_ns / 1'000'000'000),
                  static_cast<long long>(time_ns % 1'000'000'000), static_cast<long long>(sequence));
    return text;
}

std::string findAnalyzer(const std::string& given) {
    if (!given.empty()) return findProgram(given);
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) {
        const std::string beside = (self.parent_path() / "fleifeisa").string();
        if (!findProgram(beside).empty()) return beside;
    }
    return findProgram("fleifeisa");
}

}  // namespace fleifeisa::host
