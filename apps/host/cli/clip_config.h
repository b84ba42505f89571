// Configurations of clips: those of `run`, of which a clip takes what its result depends on.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "camera/camera.h"

namespace fleifeisa::host {

/// The table that is taken for cameras without one of their own.
constexpr const char* kAnyCamera = "default";

/// What a file says of clips.
struct ClipConfigs {
    /// By camera: a document of TOML in a fixed form, with the time zone and one [[camera]] that holds what a clip's
    /// result depends on. Comments, order, titles, sources, and whatever else does not matter are gone, so equal texts
    /// mean equal results.
    std::map<std::string, std::string> cameras;
    std::map<std::string, std::string> titles;  ///< of cameras that have one
    std::string timezone = "UTC";
    std::string times;  ///< how file names tell when they begin (clip_list.h), "": they do not

    /// Its own, or that of kAnyCamera, or nothing where there is neither.
    const std::string* find(const std::string& camera) const;
};

/// @param path  of a configuration as `run` has it, where source and device may be missing; "": all is as usual for
///              every camera. Faults are one line each in `errors`.
ClipConfigs loadClipConfigs(const std::string& path, std::vector<std::string>& errors);
ClipConfigs parseClipConfigs(const std::string& text, const std::string& path, std::vector<std::string>& errors);

/// The camera of such a document. @throws SourceError (EX_CONFIG)
CameraConfig clipCamera(const std::string& configuration);

}  // namespace fleifeisa::host
