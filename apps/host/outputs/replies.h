// The exact bytes of the answer to every frame, one after the other. Written in place.
#pragma once

#include "outputs/file_output.h"

namespace fleifeisa::host {

class RepliesOutput : public FileOutput {
 public:
    explicit RepliesOutput(const std::string& path, const FilePolicy& policy = {})
        : FileOutput(path, WriteMode::kInPlace, policy) {}
    void frame(const FrameResult& result) override {
        file_.write(result.reply);
        endRecord(result);
    }
};

}  // namespace fleifeisa::host
