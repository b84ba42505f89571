// The analyzer's control file: five tuning values of one device.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace fleifeisa::host {

/// Values as the user wrote them, so that nothing is lost in conversion; unset ones are the analyzer's own.
struct ControlParameters {
    std::optional<std::string> bgframes;               ///< frames of learning at the start and after each change (300)
    std::optional<std::string> color_low, color_high;  ///< confidence thresholds of COLOR images (0.25, 0.5)
    std::optional<std::string> ir_low, ir_high;        ///< and of IR images (1.0, 2.0)

    bool any() const { return bgframes || color_low || color_high || ir_low || ir_high; }
    bool operator==(const ControlParameters&) const = default;
};

/// The text of a control file with these values.
std::string controlText(const ControlParameters& parameters);

/// Where an analyzer with this device number looks; `root` is prefixed as FLEIFEISA_ROOT.
std::string controlPath(const std::string& root, int device);

/// Writes the file whole or not at all, and only where its text differs. True where it was written. An analyzer
/// notices changes by whole seconds of the modification time, so a second change in the same second is dated on.
/// @throws std::system_error with the path
bool writeControlFile(const std::string& path, std::string_view text);

}  // namespace fleifeisa::host
