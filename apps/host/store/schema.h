// Tables of the store, and how older ones become today's.
//
// Rows of a camera are numbered camera * 2^40 + number (kCameraShift), so that the primary key finds an event or a
// track, and the rows of one camera lie together in order of their numbers.
#pragma once

#include "store/database.h"

namespace fleifeisa::host {

constexpr int kSchemaVersion = 3;
constexpr int kCameraShift = 40;

inline std::int64_t rowOf(std::int64_t camera, std::int64_t number) {
    return (camera << kCameraShift) + number;
}

/// Brings an empty or older database to that version, each step a transaction of its own.
/// @throws StoreError: also where the database is newer than this program
void migrate(Database& database, int to_version = kSchemaVersion);

/// For readers, which change nothing. @throws StoreError where the version is another one
void checkVersion(Database& database);

}  // namespace fleifeisa::host
