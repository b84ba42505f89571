// The table of what a camera can write.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "outputs/output.h"

namespace fleifeisa::host {

/// A kind of output: all that the host knows of it.
struct OutputType {
    std::string_view name;          ///< as users write it
    std::string_view default_file;  ///< in the output directory, where no path is given
    std::unique_ptr<Output> (*make)(const OutputChoice& wanted, const CameraInfo& camera);
};

/// In the order in which they are listed for users.
std::span<const OutputType> outputTypes();

/// Nothing where there is none of this name.
const OutputType* findOutputType(std::string_view name);

/// Opens the output (its file is created here, so that a path that cannot be written fails at once).
/// @throws OutputError unless its policy is that of a service
std::unique_ptr<Output> makeOutput(const OutputChoice& wanted, const CameraInfo& camera);

}  // namespace fleifeisa::host
