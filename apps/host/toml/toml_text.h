// The door through which every TOML text is read.
#pragma once

#include <toml++/toml.h>

#include <stdexcept>
#include <string>
#include <string_view>

namespace fleifeisa::host {

/// "PATH:LINE: what is wrong", or "PATH: what is wrong".
struct TomlFault : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// A table of any text, hostile ones included; its sources name `path`. Strings hold what the file says. Keys beyond
/// ASCII stay placeholders: no known key has any.
/// @throws TomlFault
toml::table parseToml(std::string_view text, const std::string& path);

}  // namespace fleifeisa::host
