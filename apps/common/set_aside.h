// Files of earlier runs and earlier days: PATH.1, PATH.2 and so on, the highest number being the latest.
#pragma once

#include <string>

namespace fleifeisa {

/// Gives the file the next free number; of the numbered ones only the latest `keep` stay (0: all). A file that is not
/// there, is empty or is no regular one is left as it is. @throws std::system_error where it cannot be renamed
void setAside(const std::string& path, int keep);

}  // namespace fleifeisa
