#include "store/store_queue.h"

#include <algorithm>

namespace fleifeisa::host {

void StoreQueue::event(const CameraEvent& event) {
    if (!left_out_.empty() && left_out_.contains({event.camera, event.number})) return lose(event);
    const bool more = event.state != EventState::kStart;  // of an event that was told before, or waits
    if (events_.size() >= most_ && merge(event)) return;
    if (events_.size() < most_ + (more ? most_ / 10 : 0))
        events_.push_back(event);
    else
        lose(event);
}

bool StoreQueue::merge(const CameraEvent& event) {
    const auto waiting = std::find_if(events_.rbegin(), events_.rend(), [&event](const CameraEvent& other) {
        return other.number == event.number && other.camera == event.camera;
    });
    if (waiting == events_.rend()) return false;
    const EventState state = waiting->state == EventState::kStart ? EventState::kStart : event.state;
    *waiting = event;
    waiting->state = state;
    ++merged_;
    return true;
}

void StoreQueue::lose(const CameraEvent& event) {
    const Id id{event.camera, event.number};
    if (left_out_.contains(id)) {
        if (event.end_ns) left_out_.erase(id);
        return;
    }
    ++lost_;
    ++lost_by_camera_[event.camera];
    if (event.state == EventState::kStart && !event.end_ns) left_out_.insert(id);
}

void StoreQueue::crossing(const std::string& camera, const Crossing& crossing) {
    LineHour& count = rows_.counts[{camera, crossing.line, crossing.time_ns / kHourNs}];
    ++(crossing.forward ? count.forward : count.backward);
}

StoreRows* StoreQueue::rows() {
    if (rows_.size() < most_) return &rows_;
    ++lost_rows_;
    return nullptr;
}

bool StoreQueue::attach(Attachment attachment) {
    if (attachments_.size() >= most_) {
        ++lost_rows_;
        return false;
    }
    attachments_.push_back(std::move(attachment));
    return true;
}

StoreBatch StoreQueue::take(std::size_t most_events) {
    StoreBatch batch;
    const auto end = events_.begin() + static_cast<std::ptrdiff_t>(std::min(most_events, events_.size()));
    batch.events.assign(std::make_move_iterator(events_.begin()), std::make_move_iterator(end));
    events_.erase(events_.begin(), end);
    batch.rows = std::exchange(rows_, {});
    if (events_.empty()) batch.attachments = std::exchange(attachments_, {});
    return batch;
}

std::int64_t StoreQueue::takeLost(const std::string& camera) {
    if (lost_by_camera_.empty() || events_.size() > most_ / 2) return 0;
    const auto found = lost_by_camera_.find(camera);
    if (found == lost_by_camera_.end()) return 0;
    const std::int64_t lost = found->second;
    lost_by_camera_.erase(found);
    return lost;
}

}  // namespace fleifeisa::host
