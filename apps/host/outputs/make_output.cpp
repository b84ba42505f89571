#include <array>

#include "output.h"
#include "outputs/recording.h"
#include "outputs/replies.h"

namespace fleifeisa::host {

std::span<const std::string_view> outputTypes() {
    static constexpr std::array<std::string_view, 2> kTypes = {"replies", "recording"};
    return kTypes;
}

std::unique_ptr<Output> makeOutput(const OutputSpec& spec, const CameraInfo& /*camera*/) {
    if (spec.type == "replies") return std::make_unique<RepliesOutput>(spec.path);
    if (spec.type == "recording") return std::make_unique<RecordingOutput>(spec.path);
    throw OutputError("unknown output type '" + spec.type + "'");
}

}  // namespace fleifeisa::host
