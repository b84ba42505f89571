#include <array>

#include "output.h"
#include "outputs/jsonl.h"
#include "outputs/mot.h"
#include "outputs/onvif.h"
#include "outputs/recording.h"
#include "outputs/replies.h"
#include "outputs/report.h"
#include "outputs/tracks.h"
#include "outputs/video.h"

namespace fleifeisa::host {

std::span<const std::string_view> outputTypes() {
    static constexpr auto kTypes =
        std::to_array<std::string_view>({"jsonl", "mot", "onvif", "tracks", "video", "report", "replies", "recording"});
    return kTypes;
}

std::unique_ptr<Output> makeOutput(const OutputSpec& spec, const CameraInfo& camera) {
    if (spec.type == "jsonl") return std::make_unique<JsonlOutput>(spec.path);
    if (spec.type == "mot") return std::make_unique<MotOutput>(spec.path);
    if (spec.type == "onvif") return std::make_unique<OnvifOutput>(spec.path);
    if (spec.type == "tracks") return std::make_unique<TracksOutput>(spec.path);
    if (spec.type == "video") return std::make_unique<VideoOutput>(spec.path, camera);
    if (spec.type == "report") return std::make_unique<ReportOutput>(spec.path, camera);
    if (spec.type == "replies") return std::make_unique<RepliesOutput>(spec.path);
    if (spec.type == "recording") return std::make_unique<RecordingOutput>(spec.path);
    throw OutputError("unknown output type '" + spec.type + "'");
}

}  // namespace fleifeisa::host
