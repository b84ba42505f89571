#include "archive/merge.h"

#include <poll.h>
#include <unistd.h>

#include <filesystem>

#include "archive/merge_database.h"
#include "archive/merge_page.h"

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;

bool isSet(const Event& event) {
    pollfd item{event.fd(), POLLIN, 0};
    return ::poll(&item, 1, 0) > 0;
}

class Merge {
 public:
    Merge(const Archive& archive, const Plan& plan)
        : archive_(archive),
          plan_(plan),
          place_(archive.path("merged")),
          work_(archive.path("parts/merged@" + nodeName() + '.' + std::to_string(::getpid()))) {
        fs::remove_all(work_);
        fs::create_directories(work_);
    }
    ~Merge() {
        std::error_code error;
        fs::remove_all(work_, error);
    }
    Merge(const Merge&) = delete;
    Merge& operator=(const Merge&) = delete;

    MergeEnd run(const Event& stop, const std::function<void(std::int64_t)>& tick) {
        MergeDatabase database(work_ + "/archive.db", plan_);
        MergePage page(work_, place_, plan_);
        const std::set<std::string> results = archive_.results();
        const std::map<std::string, ClipFailure> failures = archive_.failures();
        std::int64_t count = 0;
        for (const ClipRun& run : plan_.runs) {
            if (isSet(stop)) return end_;
            std::optional<ClipResult> result;
            if (results.contains(run.name)) result = read(run);
            std::string state = result ? "done" : "missing", reason;
            if (result && !result->summary.damage.empty()) state = "damaged", reason = result->summary.damage;
            // Only what would be said alike on every machine.
            const auto failure = failures.find(run.name);
            if (!result && failure != failures.end() && failure->second.lasting)
                state = "failed", reason = failure->second.reason;
            database.add(run, result ? &*result : nullptr, state, reason);
            page.add(run, result ? &*result : nullptr, state, reason);
            ++(result ? end_.clips : end_.missing);
            if (result) end_.events += static_cast<std::int64_t>(result->events.size());
            if (result) end_.tracks += static_cast<std::int64_t>(result->tracks.size());
            if (tick) tick(++count);
        }
        database.finish();
        page.finish();
        put();
        return end_;
    }

 private:
    std::optional<ClipResult> read(const ClipRun& run) {
        try {
            return readResult(archive_, run.name);
        } catch (const std::exception& error) {
            end_.damaged.emplace_back(error.what());
            return std::nullopt;
        }
    }

    /// In the place of an earlier one. A crash between the two leaves none: it is made again.
    void put() const {
        const std::string old = work_ + ".old";
        if (fs::exists(place_)) fs::rename(place_, old);
        fs::rename(work_, place_);
        fs::remove_all(old);
    }

    const Archive& archive_;
    const Plan& plan_;
    const std::string place_, work_;
    MergeEnd end_;
};

}  // namespace

MergeEnd mergeArchive(const Archive& archive, const Plan& plan, const Event& stop,
                      const std::function<void(std::int64_t)>& tick) {
    return Merge(archive, plan).run(stop, tick);
}

}  // namespace fleifeisa::host
