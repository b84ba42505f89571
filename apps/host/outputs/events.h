// Events as they happen: JSON Lines, one object a message (events/event.h). Held ones are among them, and say so.
#pragma once

#include "outputs/file_output.h"

namespace fleifeisa::host {

class EventsOutput : public FileOutput {
 public:
    explicit EventsOutput(const std::string& path, const FilePolicy& policy = {})
        : FileOutput(path, WriteMode::kInPlace, policy) {}
    void frame(const FrameResult&) override {}
    void told(const CameraEvent& event) override {
        file_.write(eventJson(event) + '\n');
        file_.endRecord();
        file_.flush();
    }
};

}  // namespace fleifeisa::host
