// The request stream as it was sent, in one file that replays to the same bytes (`fleifeisa-host replay FILE
// --verify`).
//
// The file is itself a valid request stream. What a replay needs beyond the frames stands in messages that carry
// neither a command nor a body, which an analyzer reads without an answer:
//
//   Recording-Start     a fresh analyzer process begins here: image type, device, analyzer number
//   Recording-Control   one line of the control file; the file changed before the next frame
//   Recording-Reply     of the frame before: length of the answer, hash of the answer, hash of the request
//
// What an analyzer answers depends on every frame since its start. So a recording that has lost a frame goes on with
// the next fresh analyzer, and rotation asks for one: every file can be replayed alone.
#pragma once

#include "outputs/file_output.h"

namespace fleifeisa::host {

class RecordingOutput : public FileOutput {
 public:
    explicit RecordingOutput(const std::string& path, const FilePolicy& policy = {})
        : FileOutput(path, WriteMode::kSession, policy) {}
    void started(const CameraInfo& camera) override;
    void controlChanged(std::string_view control) override;
    void frame(const FrameResult& result) override;
    void finish() override;
    OutputState state() const override;

 private:
    void note(std::string_view name, std::string_view value);
    bool broken() const { return file_.lost() != lost_before_; }

    bool finished_ = false, begun_ = false;
    std::uint64_t lost_before_ = 0;  ///< records, when this analyzer began
    std::uint64_t left_out_ = 0;     ///< frames that were not written because an earlier one is missing
};

/// Value of Recording-Reply.
std::string recordedReply(std::string_view request, std::span<const std::uint8_t> rgb, std::string_view reply);

}  // namespace fleifeisa::host
