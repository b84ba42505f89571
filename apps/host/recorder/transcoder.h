// One ffmpeg that makes one file, out of what it is fed or out of another file. It takes what processor time others
// leave.
#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/process.h"

namespace fleifeisa::host {

/// Why a clip could not be made, a sentence for the log.
struct ClipError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Transcoder {
 public:
    static constexpr double kStallSeconds = 60;  ///< an ffmpeg that takes nothing for so long is given up

    /// @param arguments  behind ffmpeg's own, from the input to the output file  @param stop  ends it early
    /// @throws ClipError
    Transcoder(const std::vector<std::string>& arguments, bool fed, const Event& stop);

    /// @throws ClipError where ffmpeg ended, hangs, or the stop came
    void feed(std::span<const std::uint8_t> bytes);
    /// Waits until the file is whole. @throws ClipError with what ffmpeg said
    void finish();
    /// What it said of the streams' picture size, 0 before it knows.
    int width() const { return width_; }
    int height() const { return height_; }

 private:
    [[noreturn]] void fail(const std::string& why);
    void readMessages();

    const Event& stop_;
    Process process_;
    std::string line_, last_error_;
    int width_ = 0, height_ = 0;
};

}  // namespace fleifeisa::host
