// ONVIF metadata: one tt:MetadataStream document with a tt:Frame for every frame that detection ran on.
#pragma once

#include <map>

#include "outputs/file_output.h"

namespace fleifeisa::host {

/// Written to "PATH.part" until the end: a document without its last tag is none. The ids are track numbers. Where
/// tracks part or move as one, an ObjectTree says so.
class OnvifOutput : public FileOutput {
 public:
    explicit OnvifOutput(const std::string& path, const FilePolicy& policy = {});
    void frame(const FrameResult& result) override;
    void finish() override;

 private:
    std::string objectTree(const TrackFrame& frame);

    std::map<std::int64_t, std::int64_t> groups_;  ///< of each track that lives: owner of the group it moves in, or 0
    bool finished_ = false;
};

}  // namespace fleifeisa::host
