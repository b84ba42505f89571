// From directories of results to what the page of a comparison shows.
#pragma once

#include <optional>
#include <string>

#include "compare/compare_page.h"
#include "sources/source.h"

namespace fleifeisa::host {

/// One run of a clip, on disk.
struct StoredRun {
    std::string directory;                ///< of the result, see readResult()
    std::optional<SourceOptions> source;  ///< what it saw, for pictures; unset: they cannot be made
};

/// Reads both, compares them, makes pictures of where they differ. What goes wrong stands in the clip's `fault`, or in
/// `no_looks` where it is only the pictures.
ComparedClip compareRuns(const std::string& name, const StoredRun& a, const StoredRun& b);

}  // namespace fleifeisa::host
