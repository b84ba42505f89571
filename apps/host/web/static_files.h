// The page's files, in the program (apps/host/web/page, embedded when it is built).
#pragma once

#include <span>
#include <string_view>

namespace fleifeisa::host {

struct StaticFile {
    std::string_view path;  ///< "/index.html"
    std::string_view bytes;
    std::string_view tag;  ///< of its content, for If-None-Match, in quotes
};

std::span<const StaticFile> staticFiles();
/// The interface's description.
std::string_view openApi();

}  // namespace fleifeisa::host
