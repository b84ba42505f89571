// After a crash: files without rows and rows without files are found, and one or the other goes.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "store/database.h"
#include "store/schema.h"

namespace fleifeisa::host {

/// Looks through all media in steps, while the host runs. What this run makes is left alone: files of events that are
/// numbered later than what there was at the start, and files younger than that.
class Mending {
 public:
    /// @param directory  the state directory  @param first_numbers  of events that are new, by camera
    Mending(Database& database, std::string directory, std::map<std::string, std::int64_t> first_numbers);

    /// Some thousand rows, or one directory. False once there is nothing left to look at. @throws StoreError
    bool step();

    std::int64_t rows() const { return rows_; }    ///< that told of files which are not there
    std::int64_t files() const { return files_; }  ///< that no row told of, unfinished ones among them

 private:
    void checkRows();
    void checkDirectory(const std::string& directory);

    Database& database_;
    const std::string directory_;
    const std::map<std::string, std::int64_t> first_numbers_;
    const std::int64_t started_ns_;
    std::int64_t event_ = 0;
    int kind_ = -1;  ///< the row behind which to go on
    bool rows_done_ = false;
    std::vector<std::string> directories_;  ///< still to be looked at, relative
    std::int64_t rows_ = 0, files_ = 0;
};

}  // namespace fleifeisa::host
