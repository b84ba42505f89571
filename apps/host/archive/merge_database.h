// The database of a merge.
#pragma once

#include <memory>
#include <optional>

#include "archive/clip_result.h"
#include "archive/local_time.h"
#include "archive/plan.h"
#include "store/database.h"

namespace fleifeisa::host {

/// Counts of lines by hour come from its events. Times are nanoseconds since 1970, days and hours those of the place.
class MergeDatabase {
 public:
    /// @throws StoreError
    MergeDatabase(const std::string& path, const Plan& plan);

    /// In the order of the plan. @param result  null: `state` and `reason` say why there is none
    void add(const ClipRun& run, const ClipResult* result, const std::string& state, const std::string& reason);
    /// All is on disk.
    void finish();

 private:
    std::int64_t cameraOf(const std::string& name);

    const Plan& plan_;
    LocalTime time_;
    Database database_;
    std::optional<Transaction> transaction_;
    std::optional<Statement> camera_, clip_, track_, event_;
    std::map<std::string, std::int64_t> cameras_;
    std::int64_t clips_ = 0;
};

}  // namespace fleifeisa::host
