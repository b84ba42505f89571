// The state directory of a host: one host at a time, on a local filesystem, with numbers that are never used again.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "common/fd.h"
#include "store/database.h"

namespace fleifeisa::host {

/// Numbers of a camera that were not used yet.
struct NextNumbers {
    std::int64_t track = 1, event = 1;

    bool operator==(const NextNumbers&) const = default;
};

class StateDirectory {
 public:
    static constexpr std::int64_t kBlock = 1000;  ///< numbers reserved at once

    /// Creates the directory where it is missing and locks it.
    /// @throws StoreError: used by another host, on a network filesystem, cannot be written
    explicit StateDirectory(const std::string& path);

    const std::string& path() const { return path_; }
    std::string databasePath() const { return databasePath(path_); }
    static std::string databasePath(const std::string& directory) { return directory + "/events.db"; }

    /// The first numbers that are certainly unused. A whole block may have been lost with a crash.
    NextNumbers next(const std::string& camera) const;
    /// Makes sure, on disk, that no number below these is given out again. Writes only about every 500 numbers.
    /// @throws StoreError
    void reserve(const std::map<std::string, NextNumbers>& used);
    /// At an orderly end: nothing beyond these was used. @throws StoreError
    void release(const std::map<std::string, NextNumbers>& used);

 private:
    void readNumbers();
    void writeNumbers();

    std::string path_;
    Fd lock_;
    std::map<std::string, NextNumbers> limits_;  ///< as in the file
};

/// Why a filesystem of that type (statfs) is no place for a database that is mapped and locked, "" where it is one.
std::string filesystemFault(std::uint64_t type);

}  // namespace fleifeisa::host
