// Where the events of all cameras of a host come together: its store, the programs that are told, and what others tell.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "camera/tell_socket.h"
#include "hooks/hook_runner.h"
#include "media/picture_desk.h"
#include "recorder/camera_recorder.h"
#include "recorder/recorder.h"
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
    NextNumbers add(const std::string& name, const std::string& title, const std::string& source,
                    std::int64_t notify_from_ns, const std::shared_ptr<CameraPost>& post);
    /// From now on programs are told of events of this time and later.
    void notifyFrom(const std::string& camera, std::int64_t time_ns);
    /// How long the end may wait for programs of events that were just told.
    void graceAtEnd(double seconds);
    Store& store() { return *store_; }
    PictureDesk& pictures() { return *pictures_; }
    /// Also told of each event that is not held, and of each that somebody deleted (`deleted`), from the store's
    /// threads: must wait for nobody.
    void listen(std::function<void(const StoredEvent& event, bool deleted)> listener);
    Recorder& recorder() { return *recorder_; }
    /// Before the store goes: clips that can be made are made, for so long at most.
    void finish(double seconds_at_most);

 private:
    struct Known {
        std::weak_ptr<CameraPost> post;
        std::int64_t notify_from_ns = 0;
    };
    Known known(const std::string& camera);
    std::string act(const std::string& verb, const std::string& event);
    void heard(const StoredEvent& stored, bool deleted);
    std::string say(const std::string& camera, const std::string& text);

    std::mutex mutex_;
    std::function<void(const StoredEvent&, bool)> listener_;
    std::map<std::string, Known> cameras_;
    std::optional<HookRunner> hooks_;
    std::optional<Store> store_;
    std::optional<PictureDesk> pictures_;
    std::optional<Recorder> recorder_;
    std::optional<TellSocket> socket_;  ///< last: it calls the others
};

}  // namespace fleifeisa::host
