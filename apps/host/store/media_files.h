// Where the files of events lie in the state directory: media/CAMERA/DATE/NUMBER-KIND.jpg, the date being that of the
// event's start (UTC). Files are written under another name (kUnfinished) and renamed when they are whole.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "store/database.h"
#include "store/records.h"

namespace fleifeisa::host {

constexpr const char* kMediaDirectory = "media";
/// Where exports lie that nobody gave another place: "NAME.zip" with "NAME.zip.events", a line for each event in it.
constexpr const char* kExportDirectory = "exports";
constexpr const char* kExportList = ".events";
constexpr const char* kUnfinished = ".part";  ///< ending of a file that is being written

/// "picture", "box", "thumb", "strip", "clip", "times", "play", "why".
const char* nameOf(MediaKind kind);

/// Relative to the state directory: "media/gate/2026-11-21/1042-box.jpg".
std::string mediaFile(const std::string& camera, std::int64_t number, std::int64_t start_ns, MediaKind kind);

/// The number and kind of a file's name ("1042-box.jpg"), nothing where it is none of these.
struct MediaName {
    std::int64_t number = 0;
    MediaKind kind = MediaKind::kPicture;
};
std::optional<MediaName> parseMediaName(const std::string& name);

/// Writes a file whole or not at all, and makes its directories. @param file  relative to the state directory
/// @returns why that did not work, ""
std::string writeMedia(const std::string& directory, const std::string& file, std::string_view bytes);

/// Removes the exports in kExportDirectory that hold the event ("gate-12").
void removeExports(const std::string& directory, const std::string& event);

/// Removes files that no row needs any more (the table removals), at most so many, and their rows.
/// @returns whether there are more  @throws StoreError of the database; a file that cannot be removed is logged
bool removeFiles(Database& database, const std::string& directory, int most = 1000);

}  // namespace fleifeisa::host
