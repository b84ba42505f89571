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
    options.deleted = [this](const std::string& camera, std::int64_t number) {
        StoredEvent stored;
        stored.event.camera = camera;
        stored.event.number = number;
        heard(stored, true);
    };
    store_.emplace(std::move(options), [this](const StoredEvent& stored) {
        heard(stored, false);
        if (hooks_ && stored.event.time_ns >= known(stored.event.camera).notify_from_ns) hooks_->tell(stored.event);
    });
    pictures_.emplace(*store_, settings.state);
    recorder_.emplace(settings.state, *store_);
    store_->setRing({[this] { return recorder_->counts().ring_bytes; }, [this] { return recorder_->dropOldest(); }});
    socket_.emplace(settings.state,
                    [this](const std::string& camera, const std::string& text) { return say(camera, text); });
}

EventDesk::~EventDesk() {
    if (store_) store_->setRing({});  // the recorder goes first
}

void EventDesk::listen(std::function<void(const StoredEvent&, bool)> listener) {
    const std::lock_guard lock(mutex_);
    listener_ = std::move(listener);
}

void EventDesk::heard(const StoredEvent& stored, bool deleted) {
    const std::lock_guard lock(mutex_);
    if (listener_) listener_(stored, deleted);
}

void EventDesk::finish(double seconds_at_most) {
    if (!recorder_->settle(seconds_at_most))
        logWarning("", "clips of the last events are not made yet; the next run goes on with them");
}

NextNumbers EventDesk::add(const std::string& name, const std::string& title, const std::string& source,
                           std::int64_t notify_from_ns, const std::shared_ptr<CameraPost>& post) {
    {
        const std::lock_guard lock(mutex_);
        cameras_[name] = {{}, notify_from_ns};
    }
    // What an earlier run left open is ended now, which is no message of this run.
    const NextNumbers next = store_->addCamera(name, title, source);
    const std::lock_guard lock(mutex_);
    cameras_[name].post = post;
    return next;
}

void EventDesk::notifyFrom(const std::string& camera, std::int64_t time_ns) {
    const std::lock_guard lock(mutex_);
    cameras_[camera].notify_from_ns = time_ns;
}

void EventDesk::graceAtEnd(double seconds) {
    if (hooks_) hooks_->graceAtEnd(seconds);
}

EventDesk::Known EventDesk::known(const std::string& camera) {
    const std::lock_guard lock(mutex_);
    const auto found = cameras_.find(camera);
    return found == cameras_.end() ? Known{} : found->second;
}

/// What people do with an event, told by the program's other verbs: "/keep", "gate-12".
std::string EventDesk::act(const std::string& verb, const std::string& event) {
    const auto id = parseEventId(event);
    if (!id) return "expected an event, such as gate-12";
    if (verb == "/keep" || verb == "/unkeep") return store_->keep(id->first, id->second, verb == "/keep");
    if (verb == "/delete") return store_->remove(id->first, id->second);
    return "there is no '" + verb + "'";
}

std::string EventDesk::say(const std::string& camera, const std::string& text) try {
    if (camera.starts_with('/')) return act(camera, text);
    const auto post = known(camera).post.lock();
    if (!post) return "there is no camera '" + camera + "' here";
    return post->say(text) ? "" : "too much was told at once, try again";
} catch (const StoreError& error) {
    return error.what();
}

}  // namespace fleifeisa::host
