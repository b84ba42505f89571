// Events with their files in one place, to be handed on: a folder or a zip with a page that needs nothing else.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "events/schedule.h"
#include "store/reader.h"

namespace fleifeisa::host {

struct ExportResult {
    std::size_t events = 0, files = 0;
    std::size_t missing = 0;  ///< files that went while they were copied
};

/// Writes `index.html`, `events.json` and the files. A path that ends with ".zip" becomes a zip, any other a folder;
/// both are there whole or not at all, and nothing that exists is written over.
/// @param directory  the state directory  @param zone  of the times on the page
/// @param stop  once it is true a zip that is being written is given up  @throws StoreError
ExportResult exportEvents(StoreReader& reader, const std::string& directory, const std::vector<StoredEvent>& events,
                          const std::string& path, const TimeZone& zone, const std::atomic<bool>* stop = nullptr);

/// The page of an export. `files`: of each event, as they are called there.
struct ExportedEvent {
    StoredEvent event;
    std::vector<StoredMedia> files;  ///< `file` as it is called in the export
};
std::string exportPage(const std::vector<ExportedEvent>& events, const TimeZone& zone);
/// All of it as JSON: one object an event, with "files", "keep".
std::string exportJson(const std::vector<ExportedEvent>& events);

}  // namespace fleifeisa::host
