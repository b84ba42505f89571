// All results of an archive in one database and one page. The bytes follow from the list and the results alone, not
// from machines, order or number of processes.
//
//   merged/index.html       the page; opened from the disk, it needs no server
//   merged/data/*.js        what it shows, a file for each camera and day, which it loads when they are asked for
//   merged/archive.db       SQLite: cameras, clips, tracks, events, counts
//
// Pictures and videos stay where they are, in results/, and clips where the user has them: the page names both by
// paths that are relative to itself.
#pragma once

#include <functional>

#include "archive/plan.h"

namespace fleifeisa::host {

struct MergeEnd {
    std::int64_t clips = 0, missing = 0;  ///< with a result; without
    std::int64_t events = 0, tracks = 0;
    std::vector<std::string> damaged;  ///< results that could not be read: a sentence for each
};

/// Takes the place of an earlier merge once it is whole. @param tick  of clips so far, may be empty
/// @param stop  set: ends early and changes nothing  @throws StoreError, std::system_error
MergeEnd mergeArchive(const Archive& archive, const Plan& plan, const Event& stop,
                      const std::function<void(std::int64_t)>& tick);

}  // namespace fleifeisa::host
