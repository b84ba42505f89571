#include "outputs/onvif.h"

#include <algorithm>
#include <utility>

#include "common/text.h"

namespace fleifeisa::host {
namespace {

/// Boundary `at` of `size` pixels, from -1 at 0 to 1 at `size`, in units of 10^-6; boxes end at the picture's edge.
std::int64_t normalised(std::int64_t at2, int size) {
    constexpr std::int64_t kUnit = 1'000'000;
    // at2 counts half pixels. Whole numbers throughout, rounded half away from zero: the same text everywhere.
    const std::int64_t offset = std::clamp<std::int64_t>(at2, 0, 2 * std::int64_t{size}) - size;
    const std::int64_t rounded = (2 * kUnit * (offset < 0 ? -offset : offset) + size) / (2 * std::int64_t{size});
    return offset < 0 ? -rounded : rounded;
}

std::string attribute(const char* name, std::int64_t micro) {
    return std::string(" ") + name + "=\"" + fixedPoint(micro, 6) + "\"";
}

void appendObject(std::string& text, const AnalyzerObject& object, std::int64_t number, const FrameResult& frame) {
    const std::int64_t left = std::clamp(object.left, 0, frame.width);
    const std::int64_t top = std::clamp(object.top, 0, frame.height);
    const std::int64_t right = std::clamp<std::int64_t>(std::int64_t{object.left} + object.width, 0, frame.width);
    const std::int64_t bottom = std::clamp<std::int64_t>(std::int64_t{object.top} + object.height, 0, frame.height);
    text += "<tt:Object ObjectId=\"" + std::to_string(number) + "\"><tt:Appearance><tt:Shape>\n<tt:BoundingBox";
    text += attribute("left", normalised(2 * left, frame.width));
    text += attribute("top", -normalised(2 * top, frame.height));
    text += attribute("right", normalised(2 * right, frame.width));
    text += attribute("bottom", -normalised(2 * bottom, frame.height));
    text += "/>\n<tt:CenterOfGravity";
    text += attribute("x", normalised(left + right, frame.width));
    text += attribute("y", -normalised(top + bottom, frame.height));
    text += "/>\n</tt:Shape></tt:Appearance></tt:Object>\n";
}

}  // namespace

OnvifOutput::OnvifOutput(const std::string& path, const FilePolicy& policy)
    : FileOutput(path, WriteMode::kAtClose, policy) {
    file_.write(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<tt:MetadataStream xmlns:tt=\"http://www.onvif.org/ver10/schema\">\n"
        "<tt:VideoAnalytics>\n");  // a record with the first frame
}

void OnvifOutput::frame(const FrameResult& result) {
    const FollowedFrame followed = follower_.frame(result);
    if (!result.detection) return;  // nothing was looked for: not the same as nothing found
    std::string text = "<tt:Frame UtcTime=\"" + rfc3339(result.time_ns) + "\"";
    text += result.objects.empty() ? "/>\n" : ">\n";
    for (std::size_t i = 0; i < result.objects.size(); ++i)
        appendObject(text, result.objects[i], followed.numbers[i], result);
    if (!result.objects.empty()) text += "</tt:Frame>\n";
    file_.write(text);
    file_.endRecord();
}

void OnvifOutput::finish() {
    if (!std::exchange(finished_, true)) {
        file_.write("</tt:VideoAnalytics>\n</tt:MetadataStream>\n");
        file_.endRecord();
    }
    file_.close();
}

}  // namespace fleifeisa::host
