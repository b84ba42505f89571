#include "camera/output_types.h"

#include <algorithm>
#include <array>

#include "outputs/events.h"
#include "outputs/jsonl.h"
#include "outputs/mot.h"
#include "outputs/onvif.h"
#include "outputs/recording.h"
#include "outputs/replies.h"
#include "outputs/tracks.h"
#include "outputs/video.h"
#include "report/report.h"

namespace fleifeisa::host {
namespace {

template <class T>
std::unique_ptr<Output> make(const OutputChoice& wanted, const CameraInfo& camera) {
    if constexpr (std::is_constructible_v<T, const std::string&, const CameraInfo&, const FilePolicy&>)
        return std::make_unique<T>(wanted.path, camera, wanted.policy);
    else
        return std::make_unique<T>(wanted.path, wanted.policy);
}

constexpr auto kTypes = std::to_array<OutputType>({
    {"jsonl", "frames.jsonl", make<JsonlOutput>},
    {"mot", "mot.csv", make<MotOutput>},
    {"onvif", "onvif.xml", make<OnvifOutput>},
    {"tracks", "tracks.jsonl", make<TracksOutput>},
    {"events", "events.jsonl", make<EventsOutput>},
    {"video", "annotated.mp4", make<VideoOutput>},
    {"report", "report.html", make<ReportOutput>},
    {"replies", "replies.txt", make<RepliesOutput>},
    {"recording", "recording.bin", make<RecordingOutput>},
});

}  // namespace

std::span<const OutputType> outputTypes() {
    return kTypes;
}

const OutputType* findOutputType(std::string_view name) {
    const auto* found = std::ranges::find(kTypes, name, &OutputType::name);
    return found == kTypes.end() ? nullptr : found;
}

std::unique_ptr<Output> makeOutput(const OutputChoice& wanted, const CameraInfo& camera) {
    const OutputType* type = findOutputType(wanted.type);
    if (type == nullptr) throw OutputError("unknown output type '" + wanted.type + "'");
    return type->make(wanted, camera);
}

}  // namespace fleifeisa::host
