// What of one camera goes to the recorder: the packets of its source as they come, and its events.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "events/rule_engine.h"
#include "recorder/clip_settings.h"
#include "recorder/frame_encoder.h"
#include "recorder/segment_maker.h"
#include "sources/packet_sink.h"

namespace fleifeisa::host {

class Recorder;

/// The sink's calls come from the source's thread, all others from the camera's. Holds up neither of them.
class CameraRecorder : public PacketSink {
 public:
    /// @param recorder  lives longer; knows the camera before its source begins
    CameraRecorder(Recorder& recorder, std::string camera, const ClipSettings& settings);
    ~CameraRecorder() override;

    PacketCopy wanted() const override;
    void began() override;
    bool codec(std::string_view name) override;
    void packets(std::span<const std::uint8_t> bytes) override;
    void frame(std::int64_t run_ns, std::int64_t time_ns) override;
    void ended() override;
    void failed(const std::string& why) override;

    /// An analyzed frame, which is encoded where the source's packets are of no use. A caller with a file waits for the
    /// encoder, which is faster than analysis; a live one never does.
    void seen(std::span<const std::uint8_t> rgb, int width, int height, std::int64_t time_ns, bool live, double rate);
    void events(const RuleResults& results);
    /// Nothing more comes; what is encoded gets out.
    void finish();

 private:
    Recorder& recorder_;
    const std::string camera_;
    const ClipSettings settings_;
    std::atomic<bool> useless_{false};  ///< the source's packets cannot be kept
    std::unique_ptr<FrameEncoder> encoder_;

    // the source's thread's own
    SegmentMaker maker_;
    std::int64_t run_ = 0;
    bool noted_ = false;           ///< the run's first frame
    bool copying_failed_ = false;  ///< and is not tried again
};

}  // namespace fleifeisa::host
