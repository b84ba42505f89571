// The exact bytes of the answer to every frame, one after the other. Written in place.
#pragma once

#include "common/file_writer.h"
#include "outputs/output.h"

namespace fleifeisa::host {

class RepliesOutput : public Output {
 public:
    explicit RepliesOutput(const std::string& path) : file_(path) {}
    void frame(const FrameResult& result) override {
        file_.write(result.reply);
        file_.endRecord();
        if (result.live) file_.flush();
    }
    void finish() override { file_.close(); }

 private:
    FileWriter file_;
};

}  // namespace fleifeisa::host
