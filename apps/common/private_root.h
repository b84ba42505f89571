// A directory of its own for a child process.
#pragma once

#include <optional>
#include <string>

#include "common/leftovers.h"

namespace fleifeisa {

/// Empty, below the directory for temporary files, gone with all that is in it when this goes.
class PrivateRoot {
 public:
    /// @throws std::system_error with the path
    PrivateRoot();
    ~PrivateRoot();
    PrivateRoot(const PrivateRoot&) = delete;
    PrivateRoot& operator=(const PrivateRoot&) = delete;
    const std::string& path() const { return path_; }

 private:
    std::string path_;
    std::optional<Leftover> leftover_;
};

}  // namespace fleifeisa
