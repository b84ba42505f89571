// The files of the archive's page, in the program (apps/host/archive/page, embedded when it is built).
#pragma once

#include <string_view>

namespace fleifeisa::host {

std::string_view archivePage();    ///< index.html
std::string_view archiveStyle();   ///< style.css
std::string_view archiveScript();  ///< archive.js

}  // namespace fleifeisa::host
