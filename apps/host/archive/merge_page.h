// The page of a merge: its data, and the page's own files.
#pragma once

#include <array>
#include <map>
#include <set>
#include <string>

#include "archive/clip_result.h"
#include "archive/local_time.h"
#include "archive/plan.h"

namespace fleifeisa::host {

class MergePage {
 public:
    /// @param directory  is there and empty  @param place  where the page will be, absolute
    MergePage(std::string directory, std::string place, const Plan& plan);

    /// In the order of the plan.
    void add(const ClipRun& run, const ClipResult* result, const std::string& state, const std::string& reason);
    void finish();

 private:
    struct Hours {
        std::array<std::int64_t, 24> events{}, forward{}, backward{};
    };
    struct Camera {
        std::map<std::string, Hours> days;                          ///< "" for what has no date
        std::map<std::string, std::map<std::string, Hours>> lines;  ///< by line and day
        std::set<std::string> rules;
        std::int64_t clips = 0, frames = 0, tracks = 0;
    };
    void flush();
    std::string clipJson(const ClipRun& run) const;

    const std::string directory_;
    const std::string place_;  ///< absolute, where the page will be
    const Plan& plan_;
    LocalTime time_;
    std::map<std::string, Camera> cameras_;
    std::string troubles_;                     ///< JSON, of clips without a whole result
    std::map<std::string, std::string> data_;  ///< by file, what is to be appended
    std::size_t bytes_ = 0;
    std::int64_t trouble_count_ = 0;
};

}  // namespace fleifeisa::host
