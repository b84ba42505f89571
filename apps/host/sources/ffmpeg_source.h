// Everything ffmpeg reads: files, streams, cameras. ffmpeg runs as a child and delivers raw video in NUT.
#pragma once

#include <deque>
#include <memory>

#include "common/process.h"
#include "sources/nut.h"
#include "sources/packet_sink.h"
#include "sources/pipe_reader.h"
#include "sources/source.h"

namespace fleifeisa::host {

class FfmpegSource : public Source {
 public:
    /// @param sink  takes the compressed video, null: nobody does; lives longer
    FfmpegSource(const SourceOptions& options, const Event& stop, PacketSink* sink = nullptr);
    ~FfmpegSource() override;
    bool next(RawFrame& frame) override;
    std::int64_t expectedFrames() const override;
    double rate() const override { return rate_; }
    std::string complaints() const override;

 private:
    void begin(PacketCopy copy);
    void end();
    bool read(RawFrame& frame);
    void onLine(std::string_view line);
    void onCodec(std::string_view description);
    void onOutputStream(std::string_view description);
    void onFrameInfo(std::string_view line);
    void findColours();
    /// Size and format of the frame just read.
    PixelLayout layoutOfFrame();
    /// After the end of the data: was it a good one?
    void checkEnd();

    SourceOptions options_;
    const Event& stop_;
    PacketSink* const sink_;
    bool live_;
    bool one_thread_ = false;  ///< to begin with; it begins again where the picture is large
    PacketCopy copy_ = PacketCopy::kNone;
    bool copy_broke_ = false;  ///< the second output failed, and with it the decoder
    Process process_;
    std::unique_ptr<PipeReader> reader_;
    std::unique_ptr<NutReader> nut_;
    PixelLayout layout_;                 ///< of the last frame
    std::deque<PixelLayout> announced_;  ///< sizes and formats of frames that are still to come, as ffmpeg says
    bool in_output_ = false, codec_known_ = false;
    std::int64_t frames_ = 0;
    double rate_ = 0, duration_ = 0;  ///< of the input: frames a second, seconds
    std::string colours_, last_error_, first_error_;
    std::int64_t errors_ = 0;
};

}  // namespace fleifeisa::host
