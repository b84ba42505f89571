#include "web/change_feed.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstring>

namespace fleifeisa::host {
namespace {

constexpr double kQuietSeconds = 15;
constexpr std::size_t kBatch = 100;

std::string runName() {
    std::array<char, 20> text{};
    const auto now = std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
    return {text.data(), std::to_chars(text.data(), text.data() + text.size(), now, 16).ptr};
}

}  // namespace

ChangeFeed::ChangeFeed() : run_(runName()) {}

void ChangeFeed::tell(std::string_view type, const std::string& camera, const std::string& json,
                      const std::string& user) {
    std::function<void()> news;
    {
        const std::lock_guard lock(mutex_);
        messages_.push_back({next_++, std::string(type), camera, user, json});
        if (messages_.size() > kMost) messages_.pop_front();
        news = on_news_;
    }
    if (news) news();
}

void ChangeFeed::onNews(std::function<void()> call) {
    const std::lock_guard lock(mutex_);
    on_news_ = std::move(call);
}

std::int64_t ChangeFeed::latest() const {
    const std::lock_guard lock(mutex_);
    return next_ - 1;
}

bool ChangeFeed::since(std::int64_t number, std::size_t most, std::vector<Message>& messages) const {
    const std::lock_guard lock(mutex_);
    const std::int64_t first = next_ - static_cast<std::int64_t>(messages_.size());
    if (number + 1 < first) return false;
    const auto from = static_cast<std::size_t>(number + 1 - first);
    for (std::size_t i = from; i < messages_.size() && messages.size() < most; ++i) messages.push_back(messages_[i]);
    return true;
}

std::int64_t ChangeFeed::numberOf(std::string_view id) const {
    std::int64_t number = -1;
    if (!id.starts_with(run_ + '-')) return -1;
    id.remove_prefix(run_.size() + 1);
    const auto [end, error] = std::from_chars(id.data(), id.data() + id.size(), number);
    return error == std::errc{} && end == id.data() + id.size() && number >= 0 && number <= latest() ? number : -1;
}

ChangeStream::ChangeStream(const ChangeFeed& feed, const std::string& after, std::string hello,
                           std::function<bool(const ChangeFeed::Message&)> mine, std::function<bool()> over)
    : feed_(feed), hello_(std::move(hello)), mine_(std::move(mine)), over_(std::move(over)) {
    std::vector<ChangeFeed::Message> none;
    at_ = feed_.numberOf(after);
    const bool resumed = at_ >= 0 && feed_.since(at_, 0, none);
    if (!resumed) at_ = feed_.latest();
    greet(resumed);
}

void ChangeStream::greet(bool resumed) {
    put("hello", feed_.idOf(at_),
        std::string(R"({"type":"hello","resumed":)") + (resumed ? "true," : "false,") + hello_ + '}');
}

void ChangeStream::put(std::string_view type, const std::string& id, const std::string& json) {
    // JSON is one line: jsonString() escapes line ends.
    waiting_ += "id: " + id + "\nevent: " + std::string(type) + "\ndata: " + json + "\n\n";
    told_at_ = Clock::now();
}

bool ChangeStream::ready() {
    return !waiting_.empty() || feed_.latest() > at_ || Seconds(Clock::now() - told_at_).count() >= kQuietSeconds;
}

void ChangeStream::refill() {
    std::vector<ChangeFeed::Message> messages;
    if (!feed_.since(at_, kBatch, messages)) {
        at_ = feed_.latest();
        greet(false);
        return;
    }
    for (const ChangeFeed::Message& message : messages) {
        at_ = message.number;
        if (mine_(message)) put(message.type, feed_.idOf(message.number), message.json);
    }
    if (waiting_.empty() && Seconds(Clock::now() - told_at_).count() >= kQuietSeconds) {
        waiting_ = ": nothing new\n\n";
        told_at_ = Clock::now();
    }
}

std::size_t ChangeStream::read(std::span<char> to) {
    if (waiting_.empty()) refill();
    const std::size_t count = std::min(to.size(), waiting_.size());
    std::memcpy(to.data(), waiting_.data(), count);
    waiting_.erase(0, count);
    return count;
}

}  // namespace fleifeisa::host
