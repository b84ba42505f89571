// Questions of pages and programs to the store, answered in JSON.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "events/geometry.h"
#include "store/reader.h"

namespace fleifeisa::host {

/// What a user may see and asks for. Texts that go into a query are names (isCameraName, userNameFault) or numbers.
struct EventQuery {
    std::string user;                              ///< "": open access
    std::optional<std::set<std::string>> cameras;  ///< only of these
    std::set<EventKind> kinds;                     ///< empty: all
    std::string rule;
    std::int64_t since_ns = INT64_MIN, until_ns = INT64_MAX;
    struct Area {
        double left, top, right, bottom;
    };
    std::optional<Area> area;                ///< shares of the source picture
    std::map<std::string, PictureMap> maps;  ///< of cameras that analyze a part of it
    std::optional<bool> reviewed, held, keep;
    std::optional<std::string> mark;                              ///< right, wrong, none
    std::string visit;                                            ///< an event's id
    std::optional<std::pair<std::int64_t, std::int64_t>> before;  ///< start and row
    int limit = 100;
};

/// "gate-1042" taken apart; nothing where it is no such id.
std::optional<std::pair<std::string, std::int64_t>> eventIdParts(std::string_view id);

/// A connection to the store. For one thread.
class EventQueries {
 public:
    /// @throws StoreError
    explicit EventQueries(const std::string& directory);

    std::string events(const EventQuery& query);
    std::string visits(const EventQuery& query);
    /// One event as in lists with all that is known of it, "" where there is none. The caller adds its media.
    struct Found {
        StoredEvent stored;
        std::string json;
        std::string marked_by;  ///< who said its mark
        bool marked = false;
    };
    std::optional<Found> event(const std::string& camera, std::int64_t number, const std::string& user);
    /// Numbers of an event and, of a visit, of all that belong to it; empty where there is none.
    std::vector<std::int64_t> family(const std::string& camera, std::int64_t number);

    std::string activity(const std::string& camera, std::int64_t since_ns, std::int64_t until_ns, int step, bool grid);
    std::string gaps(const std::string& camera, std::int64_t since_ns, std::int64_t until_ns);
    std::string scenes(const std::string& camera, std::int64_t since_ns, std::int64_t until_ns);
    std::string counts(const std::string& camera, std::int64_t since_ns, std::int64_t until_ns);
    /// Where tracks were that have ended. At most kMostPaths of them.
    static constexpr std::int64_t kMostPaths = 1000;
    std::string paths(const std::string& camera, std::int64_t since_ns, std::int64_t until_ns);
    /// How many events of tracks began in that time.
    std::int64_t eventsBetween(const std::string& camera, std::int64_t since_ns, std::int64_t until_ns);
    /// When its first event began, INT64_MAX: there is none.
    std::int64_t firstEvent(const std::string& camera);
    /// Tracks that ended since then, and scenes; of so many tracks the latest. `since_ns` is where they begin then.
    struct Past {
        std::vector<PastTrack> tracks;
        std::vector<PastScene> scenes;
        std::int64_t since_ns = 0;
    };
    Past past(const std::string& camera, std::int64_t since_ns, std::int64_t most_tracks);
    /// The event that shows a track at that time: its own, else the visit; "" where no picture was kept.
    std::string pictured(const std::string& camera, std::int64_t track, std::int64_t time_ns);
    /// The latest events of that kind and rule, and who said what of them.
    std::vector<std::pair<StoredEvent, std::int64_t>> marked(const std::string& camera, EventKind kind,
                                                             const std::string& rule, int most);
    std::string parametersText(const std::string& hash) { return reader_.parameters(hash); }
    std::string lastEvent(const std::string& camera);
    std::vector<std::string> cameras() { return reader_.cameras(); }
    bool knows(const std::string& camera) { return idOf(camera) != 0; }
    /// Of all files of events.
    std::int64_t mediaBytes() { return database_.integer("SELECT coalesce(sum(bytes), 0) FROM media"); }
    /// How many days of clips and pictures fit at the present rate; nothing where that is not known yet.
    std::optional<double> daysThatFit(std::int64_t free_bytes);
    std::vector<StoredMedia> media(const std::string& camera, std::int64_t number) {
        return reader_.media(camera, number);
    }

 private:
    std::int64_t idOf(const std::string& camera);
    std::string where(const EventQuery& query, bool visits);
    std::string page(const EventQuery& query, bool visits,
                     const std::function<std::string(const StoredEvent&, std::int64_t, const std::string&)>& item);

    StoreReader reader_;
    Database database_;
};

}  // namespace fleifeisa::host
