// Reading the store: beside a running host, without holding it up, or without one.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "store/media_retention.h"
#include "store/records.h"

namespace fleifeisa::host {

/// "" and 0: whatever it is. Times are nanoseconds since 1970.
struct EventFilter {
    std::string camera, rule;
    std::optional<EventKind> kind;
    std::int64_t since_ns = 0, until_ns = 0;  ///< of the start; until is exclusive
    std::int64_t most = 0;                    ///< only the latest so many
    std::optional<ClipState> clip = {};
};

class StoreReader {
 public:
    /// @param directory  the state directory @throws StoreError
    explicit StoreReader(const std::string& directory);

    /// In order of their starts, then cameras and numbers.
    void events(const EventFilter& filter, const std::function<void(const StoredEvent&)>& found);
    /// The media of one event in order of their kinds.
    std::vector<StoredMedia> media(const std::string& camera, std::int64_t number);
    std::optional<StoredEvent> event(const std::string& camera, std::int64_t number);
    /// Who said what of an event.
    std::map<std::string, Verdict> reviews(const std::string& camera, std::int64_t number);
    std::vector<std::string> cameras();
    /// Tracks of a camera that ended since then, in order of their numbers.
    std::vector<PastTrack> tracks(const std::string& camera, std::int64_t since_ns);
    std::vector<PastScene> scenes(const std::string& camera, std::int64_t since_ns);
    /// By line and hour.
    std::map<std::pair<std::string, std::int64_t>, LineHour> counts(const std::string& camera);
    std::vector<ActivityMinute> minutes(const std::string& camera, std::int64_t since_minute);
    std::vector<NearMiss> nearMisses(const std::string& camera);
    /// The parameters of that hash, "" where there are none.
    std::string parameters(const std::string& hash);

    /// What there is on disk, by camera. @param free_bytes  of the filesystem
    std::vector<MediaUse> use(std::int64_t now_ns, std::int64_t free_bytes) {
        return mediaUse(database_, now_ns, free_bytes);
    }

    /// What is wrong with the database, one sentence each; empty: all is well.
    std::vector<std::string> check();
    void backup(const std::string& path) { database_.backup(path); }

 private:
    std::int64_t cameraId(const std::string& name);

    Database database_;
};

}  // namespace fleifeisa::host
