// MOTChallenge CSV: frame, id, left, top, width, height, confidence, x, y, z; 1-based, one line a track and frame.
#pragma once

#include "outputs/file_output.h"

namespace fleifeisa::host {

/// Written in place.
class MotOutput : public FileOutput {
 public:
    explicit MotOutput(const std::string& path, const FilePolicy& policy = {})
        : FileOutput(path, WriteMode::kInPlace, policy) {}
    void frame(const FrameResult& result) override;
};

}  // namespace fleifeisa::host
