// JSON Lines: one object a frame, every frame, also while the background is learnt.
#pragma once

#include "outputs/file_output.h"

namespace fleifeisa::host {

/// Written in place.
class JsonlOutput : public FileOutput {
 public:
    explicit JsonlOutput(const std::string& path, const FilePolicy& policy = {})
        : FileOutput(path, WriteMode::kInPlace, policy) {}
    void frame(const FrameResult& result) override;
};

}  // namespace fleifeisa::host
