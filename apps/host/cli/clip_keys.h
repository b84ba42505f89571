// Changes to the configuration of a clip (clip_config.h), as text in its fixed form.
#pragma once

#include <string>
#include <vector>

namespace fleifeisa::host {

/// With these outputs in place of its own.
std::string withOutputs(const std::string& configuration, const std::vector<std::string>& outputs);
/// With the keys of `lines` (of a [[camera]] table, [camera.control] included) in place of its own; the others stay.
std::string withLines(const std::string& configuration, const std::string& lines);

/// Without this key of the camera.
std::string withoutKey(const std::string& configuration, const std::string& key);

struct DifferentKey {
    std::string key, a, b;  ///< values as the files have them, "": not there
};
/// Keys of the camera, with their tables' names before them, whose values differ.
std::vector<DifferentKey> differentKeys(const std::string& a, const std::string& b);

}  // namespace fleifeisa::host
