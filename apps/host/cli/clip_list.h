// Which clips a user means.
#pragma once

#include <string>
#include <vector>

#include "archive/clip.h"
#include "cli/clip_config.h"

namespace fleifeisa::host {

/// Files, directories, which are searched for videos to any depth, and lists (.csv) with a line for each clip:
///
///     camera,file,start
///     gate,2026/gate-0815.mp4,2026-03-01T08:15:00Z
///
/// in any order of the columns, of which only `file` must be there; paths are taken from the list's directory. A scene
/// ("scene:street?seed=3") stands for a file.
///
/// Whose clip it is: as the list says, else the nearest folder above it that has the name of a configured camera, else
/// the camera whose name its own name begins with, else the only configured camera, else the name of its folder.
///
/// When it begins: as the list says, else as its name says where the configuration has `clip_times`, such as
/// "%Y%m%d_%H%M%S", in the time of the configured place. Else its times begin at 0.
///
/// @returns by camera, start and file; a file that is named twice stands once. Faults are one line each in `errors`.
std::vector<Clip> listClips(const std::vector<std::string>& arguments, const ClipConfigs& configs,
                            std::vector<std::string>& errors);

/// The moment in a name (nanoseconds since 1970, in the time of `timezone`), nothing where the pattern does not fit.
std::optional<std::int64_t> momentInName(const std::string& name, const std::string& pattern,
                                         const std::string& timezone);

/// What is wrong with such a pattern, "" where nothing is.
std::string timesFault(const std::string& pattern);

}  // namespace fleifeisa::host
