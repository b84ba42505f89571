#include <array>

#include "outputs/jsonl.h"
#include "outputs/mot.h"
#include "outputs/onvif.h"
#include "outputs/output.h"
#include "outputs/recording.h"
#include "outputs/replies.h"
#include "outputs/tracks.h"
#include "outputs/video.h"
#include "report/report.h"

namespace fleifeisa::host {

std::span<const std::string_view> outputTypes() {
    static constexpr auto kTypes =
        std::to_array<std::string_view>({"jsonl", "mot", "onvif", "tracks", "video", "report", "replies", "recording"});
    return kTypes;
}

std::unique_ptr<Output> makeOutput(const OutputChoice& wanted, const CameraInfo& camera) {
    if (wanted.type == "jsonl") return std::make_unique<JsonlOutput>(wanted.path);
    if (wanted.type == "mot") return std::make_unique<MotOutput>(wanted.path);
    if (wanted.type == "onvif") return std::make_unique<OnvifOutput>(wanted.path);
    if (wanted.type == "tracks") return std::make_unique<TracksOutput>(wanted.path);
    if (wanted.type == "video") return std::make_unique<VideoOutput>(wanted.path, camera);
    if (wanted.type == "report") return std::make_unique<ReportOutput>(wanted.path, camera);
    if (wanted.type == "replies") return std::make_unique<RepliesOutput>(wanted.path);
    if (wanted.type == "recording") return std::make_unique<RecordingOutput>(wanted.path);
    throw OutputError("unknown output type '" + wanted.type + "'");
}

}  // namespace fleifeisa::host
