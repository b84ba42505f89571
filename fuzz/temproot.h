// A directory of the process's own for the control file, in memory where the system has such a place.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "fuzz/bytes.h"
#include "host/Control.h"

// Makes the directory of the control file of device `devid` and points FLEIFEISA_ROOT to it.
class TempRoot {
 public:
    explicit TempRoot(int devid) {
        path_ = access("/dev/shm", W_OK) == 0 ? "/dev/shm/fleifeisa-fuzz-XXXXXX" : "/tmp/fleifeisa-fuzz-XXXXXX";
        FUZZ_CHECK(mkdtemp(path_.data()) != nullptr, "no temporary directory");
        setenv("FLEIFEISA_ROOT", path_.c_str(), 1);
        setenv("FLEIFEISA_SANDBOX", "off", 1);  // a fuzzer goes on opening files
        std::filesystem::create_directories(std::filesystem::path(ControlPath(devid)).parent_path());
    }
    ~TempRoot() { std::filesystem::remove_all(path_); }
    TempRoot(const TempRoot&) = delete;
    TempRoot& operator=(const TempRoot&) = delete;

 private:
    std::string path_;
};
