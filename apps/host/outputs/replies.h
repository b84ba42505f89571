// The exact bytes of every reply, one after the other.
#pragma once

#include "output.h"
#include "outputs/file_writer.h"

namespace fleifeisa::host {

class RepliesOutput : public Output {
 public:
    explicit RepliesOutput(const std::string& path) : file_(path) {}
    void frame(const FrameResult& result) override { file_.write(result.reply); }
    void finish() override { file_.close(); }

 private:
    FileWriter file_;
};

}  // namespace fleifeisa::host
