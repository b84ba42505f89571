#include "camera/event_desk.h"

#include <utility>

#include "common/log.h"

namespace fleifeisa::host {

void CameraPost::committed(const CameraEvent& event) {
    const std::lock_guard lock(mutex_);
    if (committed_.size() >= kMostTold) {
        committed_.pop_front();
        ++lost_;
    }
    committed_.push_back(event);
    wake_.set();
}

bool CameraPost::say(const std::string& text) {
    const std::lock_guard lock(mutex_);
    if (said_.size() >= kMostSaid) return false;
    said_.push_back(text);
    wake_.set();
    return true;
}

std::deque<CameraEvent> CameraPost::takeCommitted() {
    const std::lock_guard lock(mutex_);
    return std::exchange(committed_, {});
}

std::deque<std::string> CameraPost::takeSaid() {
    const std::lock_guard lock(mutex_);
    return std::exchange(said_, {});
}

std::int64_t CameraPost::lost() const {
    const std::lock_guard lock(mutex_);
    return lost_;
}

EventDesk::EventDesk(const DeskSettings& settings) {
    if (!settings.on_event.empty()) {
        HookSettings hook;
        hook.command = settings.on_event;
        hooks_.emplace(std::move(hook));
    }
    StoreOptions options;
    options.directory = settings.state;
    options.retention = settings.retention;
    options.committed = [this](const CameraEvent& event) {
        if (const auto post = known(event.camera).post.lock()) post->committed(event);
    };
    store_.emplace(std::move(options), [this](const StoredEvent& stored) {
        if (hooks_ && known(stored.event.camera).notify) hooks_->tell(stored.event);
    });
    socket_.emplace(settings.state,
                    [this](const std::string& camera, const std::string& text) { return say(camera, text); });
}

EventDesk::~EventDesk() = default;

NextNumbers EventDesk::add(const std::string& name, const std::string& title, const std::string& source, bool notify,
                           const std::shared_ptr<CameraPost>& post) {
    {
        const std::lock_guard lock(mutex_);
        cameras_[name] = {{}, notify};
    }
    // What an earlier run left open is ended now, which is no message of this run.
    const NextNumbers next = store_->addCamera(name, title, source);
    const std::lock_guard lock(mutex_);
    cameras_[name].post = post;
    return next;
}

EventDesk::Known EventDesk::known(const std::string& camera) {
    const std::lock_guard lock(mutex_);
    const auto found = cameras_.find(camera);
    return found == cameras_.end() ? Known{} : found->second;
}

std::string EventDesk::say(const std::string& camera, const std::string& text) {
    const auto post = known(camera).post.lock();
    if (!post) return "there is no camera '" + camera + "' here";
    return post->say(text) ? "" : "too much was told at once, try again";
}

}  // namespace fleifeisa::host
