// Everything ffmpeg reads: files, images, streams, cameras. ffmpeg runs as a child and delivers raw video in NUT.
#pragma once

#include <memory>

#include "common/leftovers.h"
#include "common/process.h"
#include "sources/nut.h"
#include "sources/pipe_reader.h"
#include "sources/source.h"

namespace fleifeisa::host {

class FfmpegSource : public Source {
 public:
    FfmpegSource(const SourceOptions& options, const Event& stop);
    ~FfmpegSource() override;
    bool next(RawFrame& frame) override;
    std::int64_t expectedFrames() const override;
    double rate() const override { return rate_; }
    std::string complaints() const override;

 private:
    std::vector<std::string> arguments();
    void inputArguments(std::vector<std::string>& argv);
    /// Writes a list of images as ffmpeg's concat demuxer takes it; its path.
    std::string writeImageList();
    void onLine(std::string_view line);
    void onOutputStream(std::string_view description);
    void takeLayout();
    /// After the end of the data: was it a good one?
    void checkEnd();

    SourceOptions options_;
    bool live_;
    std::string list_path_;  ///< temporary list of images, "": none
    std::optional<Leftover> leftover_;
    Process process_;
    std::unique_ptr<PipeReader> reader_;
    std::unique_ptr<NutReader> nut_;
    PixelLayout layout_;
    bool have_layout_ = false, in_output_ = false;
    std::int64_t frames_ = 0, images_ = 0;
    double rate_ = 0, duration_ = 0;  ///< of the input: frames a second, seconds
    std::string format_, colours_, last_error_, first_error_;
    std::int64_t errors_ = 0;
};

}  // namespace fleifeisa::host
