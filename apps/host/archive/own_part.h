// Parts of long clips: which frames a run reads, and which of its tracks and events are its own.
#pragma once

#include <string>

#include "archive/clip.h"
#include "sources/source.h"

namespace fleifeisa::host {

/// Makes the source begin with the warm-up and end with the tail. Times stay those of the whole clip.
void readPart(SourceOptions& source, const ClipPart& part);

/// Of tracks.jsonl and events.jsonl in `directory`, leaves the lines of tracks and events that begin in the part.
/// @throws std::system_error, std::runtime_error
void takeOwnPart(const std::string& directory, const ClipSummary& summary);

}  // namespace fleifeisa::host
