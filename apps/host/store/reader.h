// Reading the store: beside a running host, without holding it up, or without one.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "store/records.h"

namespace fleifeisa::host {

/// "" and 0: whatever it is. Times are nanoseconds since 1970.
struct EventFilter {
    std::string camera, rule;
    std::optional<EventKind> kind;
    std::int64_t since_ns = 0, until_ns = 0;  ///< of the start; until is exclusive
    std::int64_t most = 0;                    ///< only the latest so many
};

class StoreReader {
 public:
    /// @param directory  the state directory @throws StoreError
    explicit StoreReader(const std::string& directory);

    /// In order of their starts, then cameras and numbers.
    void events(const EventFilter& filter, const std::function<void(const StoredEvent&)>& found);
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

    /// What is wrong with the database, one sentence each; empty: all is well.
    std::vector<std::string> check();
    void backup(const std::string& path) { database_.backup(path); }

 private:
    std::int64_t cameraId(const std::string& name);

    Database database_;
};

}  // namespace fleifeisa::host
