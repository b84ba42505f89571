// Files that are of no use without the host, for the one end at which nothing gets destroyed.
#pragma once

#include <string>

namespace fleifeisa {

/// While this lives, removeLeftovers() removes the path. The orderly end is up to the owner.
class Leftover {
 public:
    explicit Leftover(std::string path);
    ~Leftover();
    Leftover(const Leftover&) = delete;
    Leftover& operator=(const Leftover&) = delete;

 private:
    const std::string path_;
};

/// For a host that ends at once: removes files, and directories with what is in them, as far as it can. `files` false:
/// those that hold something already stay.
void removeLeftovers(bool files);

}  // namespace fleifeisa
