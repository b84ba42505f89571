// What the outputs share that append records to one file.
#pragma once

#include "common/file_writer.h"
#include "outputs/output.h"

namespace fleifeisa::host {

class FileOutput : public Output {
 public:
    void finish() override { file_.close(); }
    void reopen() override { file_.flush(); }
    OutputState state() const override { return {file_.failing(), file_.lost()}; }

 protected:
    FileOutput(const std::string& path, WriteMode mode, const FilePolicy& policy) : file_(path, mode, policy) {}

    /// Ends a record; what plays in real time leaves at once, so that the file can be followed.
    void endRecord(const FrameResult& result) {
        file_.endRecord();
        if (result.realtime) file_.flush();
    }

    FileWriter file_;
};

}  // namespace fleifeisa::host
