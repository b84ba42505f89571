// RGB pictures to an MP4 file, through ffmpeg as a child process.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "common/file_writer.h"
#include "common/process.h"

namespace fleifeisa::host {

/// H.264 by one encoder thread from planar YUV that is converted here: the same pictures give the same file with the
/// same ffmpeg, on any number of processors. Written to "PATH.part" and renamed by finish(); without that, or
/// after a failure, the file goes.
class Encoder {
 public:
    /// @throws OutputError without an ffmpeg, or where the file cannot be created
    explicit Encoder(std::string path, const FilePolicy& policy = {});

    /// Every picture has the size and the rate of the first. @throws OutputError with what ffmpeg said
    void frame(std::span<const std::uint8_t> rgb, int width, int height, double rate);
    /// Waits for ffmpeg. Without a picture there is no file. Later calls do nothing.
    void finish();

 private:
    void start(int width, int height, double rate);
    void convert(std::span<const std::uint8_t> rgb, int width, int height);
    void send();
    void readMessages();
    [[noreturn]] void fail(const std::string& why);

    FileWriter file_;  ///< never written to: it creates the file, gives it its name or removes it; outlives ffmpeg
    std::string path_;
    std::optional<Process> ffmpeg_;
    std::string messages_;  ///< the end of what ffmpeg said
    std::vector<std::uint8_t> planes_;
    bool finished_ = false;
};

}  // namespace fleifeisa::host
