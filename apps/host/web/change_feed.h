// What happens, as it happens, for any number of readers: one ring of messages, each reader with its place in it.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "http/message.h"

namespace fleifeisa::host {

class ChangeFeed {
 public:
    static constexpr std::size_t kMost = 4000;  ///< messages that are kept for those who come back

    ChangeFeed();
    /// From any thread. @param camera  whom it concerns, "": everybody @param user  to be told, "": all
    void tell(std::string_view type, const std::string& camera, const std::string& json, const std::string& user = "");
    /// Called after each tell(); must not wait.
    void onNews(std::function<void()> call);

    struct Message {
        std::int64_t number = 0;
        std::string type, camera, user, json;
    };
    /// Number of the latest message.
    std::int64_t latest() const;
    /// What came behind `number`, at most so many. False where some of it is gone.
    bool since(std::int64_t number, std::size_t most, std::vector<Message>& messages) const;

    /// "5f3a-12": names a message of this run.
    std::string idOf(std::int64_t number) const { return run_ + '-' + std::to_string(number); }
    /// -1 where it is none of this run, or no longer known.
    std::int64_t numberOf(std::string_view id) const;

 private:
    const std::string run_;
    mutable std::mutex mutex_;
    std::deque<Message> messages_;
    std::int64_t next_ = 1;
    std::function<void()> on_news_;
};

/// One reader: server-sent events.
class ChangeStream final : public HttpStream {
 public:
    /// @param after  of the reader's last message, "": begins now
    /// @param mine  whether a message is for this reader; may end it by saying so in `over`
    ChangeStream(const ChangeFeed& feed, const std::string& after, std::string hello,
                 std::function<bool(const ChangeFeed::Message&)> mine, std::function<bool()> over);
    std::size_t read(std::span<char> to) override;
    bool ready() override;
    bool over() override { return over_(); }

 private:
    void refill();
    void put(std::string_view type, const std::string& id, const std::string& json);
    void greet(bool resumed);

    const ChangeFeed& feed_;
    const std::string hello_;
    const std::function<bool(const ChangeFeed::Message&)> mine_;
    const std::function<bool()> over_;
    std::int64_t at_ = 0;
    std::string waiting_;
    Clock::time_point told_at_ = Clock::now();
};

}  // namespace fleifeisa::host
