// Where the events of all cameras of a host come together: its store, the programs that are told, and what others tell.
#pragma once

#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "camera/tell_socket.h"
#include "hooks/hook_runner.h"
#include "store/store.h"

namespace fleifeisa::host {

struct DeskSettings {
    std::string state;                  ///< state directory, "": no store
    RetentionLimits retention;          ///< of the store
    std::vector<std::string> on_event;  ///< a program and its arguments (hook_runner.h), empty: none

    bool operator==(const DeskSettings&) const = default;
};

/// What waits for a camera's thread. Written to by others, read by that thread when wake() is set.
class CameraPost {
 public:
    static constexpr std::size_t kMostTold = 20'000, kMostSaid = 100;

    const Event& wake() const { return wake_; }
    /// A message of one of its events is safe on disk. The oldest goes where too many wait.
    void committed(const CameraEvent& event);
    /// False where too much waits.
    bool say(const std::string& text);
    std::deque<CameraEvent> takeCommitted();
    std::deque<std::string> takeSaid();
    std::int64_t lost() const;

 private:
    Event wake_;
    mutable std::mutex mutex_;
    std::deque<CameraEvent> committed_;
    std::deque<std::string> said_;
    std::int64_t lost_ = 0;
};

class EventDesk {
 public:
    /// @throws StoreError where the state directory cannot be used
    explicit EventDesk(const DeskSettings& settings);
    ~EventDesk();
    EventDesk(const EventDesk&) = delete;
    EventDesk& operator=(const EventDesk&) = delete;

    /// Before a camera starts; waits for the disk.
    NextNumbers add(const std::string& name, const std::string& title, const std::string& source, bool notify,
                    const std::shared_ptr<CameraPost>& post);
    Store& store() { return *store_; }

 private:
    struct Known {
        std::weak_ptr<CameraPost> post;
        bool notify = true;
    };
    Known known(const std::string& camera);
    std::string say(const std::string& camera, const std::string& text);

    std::mutex mutex_;
    std::map<std::string, Known> cameras_;
    std::optional<HookRunner> hooks_;
    std::optional<Store> store_;
    std::optional<TellSocket> socket_;  ///< last: it calls the others
};

}  // namespace fleifeisa::host
