// JSON Lines: one object a frame, every frame, also while the background is learnt.
#pragma once

#include "common/file_writer.h"
#include "outputs/output.h"

namespace fleifeisa::host {

/// Written in place; of a live source each line leaves at once, so that the file can be followed.
class JsonlOutput : public Output {
 public:
    explicit JsonlOutput(const std::string& path) : file_(path) {}
    void frame(const FrameResult& result) override;
    void finish() override { file_.close(); }

 private:
    FileWriter file_;
};

}  // namespace fleifeisa::host
