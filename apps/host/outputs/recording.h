// The request stream as it was sent, in one file that replays to the same bytes (`fleifeisa-host replay FILE
// --verify`).
//
// The file is itself a valid request stream. What a replay needs beyond the frames stands in messages that carry
// neither a command nor a body, which an analyzer reads without an answer:
//
//   Recording-Start     a fresh analyzer process begins here: image type, device, analyzer number
//   Recording-Control   one line of the control file; the file changed before the next frame
//   Recording-Reply     length and FNV-1a hash of the answer to the frame before
#pragma once

#include "common/file_writer.h"
#include "outputs/output.h"

namespace fleifeisa::host {

class RecordingOutput : public Output {
 public:
    explicit RecordingOutput(const std::string& path) : file_(path) {}
    void started(const CameraInfo& camera) override;
    void controlChanged(std::string_view control) override;
    void frame(const FrameResult& result) override;
    void finish() override;

 private:
    void note(std::string_view name, std::string_view value);

    FileWriter file_;
    bool finished_ = false;
};

/// 64-bit FNV-1a.
std::uint64_t fnv1a(std::string_view bytes);

}  // namespace fleifeisa::host
