// What waits for the store's writer: bounded, with a rule for what happens at the bound.
//
// Events: at the bound, what is told of an event that still waits is merged into what waits (a start stays a start, so
// nobody misses it; it then has an end where it has ended). What goes on of an event that was stored already is let in
// up to another tenth. A new event is left out and counted, and whatever follows of it. Crossings are sums, so they
// need no bound. Of all other rows the newest are left out and counted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "store/records.h"

namespace fleifeisa::host {

/// Other rows, with the camera's name; the text of parameters in force has none.
struct StoreRows {
    std::vector<std::pair<std::string, StoredTrack>> tracks;
    std::vector<std::pair<std::string, PastScene>> scenes;
    std::vector<std::pair<std::string, ActivityMinute>> minutes;
    std::vector<std::pair<std::string, NearMiss>> near_misses;
    struct Parameters {
        std::string hash, text;
        std::int64_t time_ns;
    };
    std::vector<Parameters> parameters;
    using LineKey = std::tuple<std::string, std::string, std::int64_t>;  ///< camera, line, hour
    std::map<LineKey, LineHour> counts;

    std::size_t size() const {
        return tracks.size() + scenes.size() + minutes.size() + near_misses.size() + parameters.size();
    }
    bool empty() const { return size() == 0 && counts.empty(); }
};

/// Files and the clip's state of one event.
struct Attachment {
    std::string camera;
    std::int64_t number = 0;
    std::vector<StoredMedia> media;
    std::optional<ClipState> clip;  ///< set before the media are attached
};

struct StoreBatch {
    std::vector<CameraEvent> events;
    StoreRows rows;
    std::vector<Attachment> attachments;

    bool empty() const { return events.empty() && rows.empty() && attachments.empty(); }
};

class StoreQueue {
 public:
    explicit StoreQueue(std::size_t most_events) : most_(most_events) {}

    void event(const CameraEvent& event);
    void crossing(const std::string& camera, const Crossing& crossing);
    /// Rows to be pushed into, or nothing where there is no room (counted).
    StoreRows* rows();
    /// False where there is no room (counted).
    bool attach(Attachment attachment);

    /// The oldest events, at most so many, and all other rows; attachments once no event waits that they may belong to.
    StoreBatch take(std::size_t most_events);
    bool empty() const { return events_.empty() && rows_.empty() && attachments_.empty(); }
    std::size_t size() const { return events_.size(); }
    std::int64_t merged() const { return merged_; }
    std::int64_t lost() const { return lost_; }
    std::int64_t lostRows() const { return lost_rows_; }
    /// Events of the camera that were left out since the last call, once there is room to say so; else 0.
    std::int64_t takeLost(const std::string& camera);

 private:
    using Id = std::pair<std::string, std::int64_t>;  ///< camera, number

    bool merge(const CameraEvent& event);
    void lose(const CameraEvent& event);

    const std::size_t most_;
    std::deque<CameraEvent> events_;
    StoreRows rows_;
    std::vector<Attachment> attachments_;
    std::int64_t merged_ = 0, lost_ = 0, lost_rows_ = 0;
    std::map<std::string, std::int64_t> lost_by_camera_;
    std::set<Id> left_out_;  ///< that run on; at most as many as run at once
};

}  // namespace fleifeisa::host
