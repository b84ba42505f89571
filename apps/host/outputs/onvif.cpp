#include "outputs/onvif.h"

#include <algorithm>
#include <utility>

#include "common/text.h"
#include "outputs/shown.h"

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

void appendObject(std::string& text, const Track& track, const FrameResult& frame) {
    const std::int64_t left = std::clamp(track.box.left, 0, frame.width);
    const std::int64_t top = std::clamp(track.box.top, 0, frame.height);
    const std::int64_t right = std::clamp<std::int64_t>(std::int64_t{track.box.left} + track.box.width, 0, frame.width);
    const std::int64_t bottom =
        std::clamp<std::int64_t>(std::int64_t{track.box.top} + track.box.height, 0, frame.height);
    text += "<tt:Object ObjectId=\"" + std::to_string(track.number) + "\"><tt:Appearance><tt:Shape>\n<tt:BoundingBox";
    text += attribute("left", normalised(2 * left, frame.width));
    text += attribute("top", -normalised(2 * top, frame.height));
    text += attribute("right", normalised(2 * right, frame.width));
    text += attribute("bottom", -normalised(2 * bottom, frame.height));
    text += "/>\n<tt:CenterOfGravity";
    text += attribute("x", normalised(left + right, frame.width));
    text += attribute("y", -normalised(top + bottom, frame.height));
    text += "/>\n</tt:Shape></tt:Appearance></tt:Object>\n";
}

std::string idElement(const char* name, std::int64_t number) {
    return std::string("<tt:") + name + " ObjectId=\"" + std::to_string(number) + "\"/>";
}

std::string parted(std::int64_t from, std::int64_t part) {
    return "<tt:Split>" + idElement("from", from) + idElement("to", from) + idElement("to", part) + "</tt:Split>\n";
}

std::string joined(std::int64_t one, std::int64_t owner) {
    return "<tt:Merge>" + idElement("from", one) + idElement("from", owner) + idElement("to", owner) + "</tt:Merge>\n";
}

}  // namespace

OnvifOutput::OnvifOutput(const std::string& path, const FilePolicy& policy)
    : FileOutput(path, WriteMode::kAtClose, policy) {
    file_.write(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<tt:MetadataStream xmlns:tt=\"http://www.onvif.org/ver10/schema\">\n"
        "<tt:VideoAnalytics>\n");  // a record with the first frame
}

/// What parted and what moves as one since the frame before; "" where nothing did. Splits come first.
std::string OnvifOutput::objectTree(const TrackFrame& frame) {
    std::string splits, merges;
    for (const Track& track : frame.tracks) {
        if (track.state == TrackState::kTentative) continue;
        if (track.state == TrackState::kEnded) {
            groups_.erase(track.number);
            continue;
        }
        const auto [entry, fresh] = groups_.try_emplace(track.number, 0);
        std::int64_t& owner = entry->second;
        if (fresh && track.split_from != 0) splits += parted(track.split_from, track.number);
        if (owner == track.merged_with) continue;
        if (owner != 0) splits += parted(owner, track.number);
        if (track.merged_with != 0) merges += joined(track.number, track.merged_with);
        owner = track.merged_with;
    }
    return splits.empty() && merges.empty() ? "" : "<tt:ObjectTree>\n" + splits + merges + "</tt:ObjectTree>\n";
}

void OnvifOutput::frame(const FrameResult& result) {
    std::string inside;
    for (const Track& track : result.tracks.tracks)
        if (isShown(track)) appendObject(inside, track, result);
    inside += objectTree(result.tracks);
    // Nothing was looked for: not the same as nothing found. Tracks that live on while an analyzer learns are found.
    if (!result.detection && inside.empty()) return;
    std::string text = "<tt:Frame UtcTime=\"" + rfc3339(result.time_ns) + "\"";
    text += inside.empty() ? "/>\n" : ">\n" + inside + "</tt:Frame>\n";
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
