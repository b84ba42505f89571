#include "common/private_root.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace fleifeisa {

PrivateRoot::PrivateRoot() : path_((std::filesystem::temp_directory_path() / "fleifeisa-XXXXXX").string()) {
    if (!::mkdtemp(path_.data())) throw std::system_error(errno, std::generic_category(), path_);
    leftover_.emplace(path_);
}

PrivateRoot::~PrivateRoot() {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
}

}  // namespace fleifeisa
