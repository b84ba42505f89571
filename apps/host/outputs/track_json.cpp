#include "outputs/track_json.h"

#include <cmath>

#include "common/text.h"

namespace fleifeisa::host {
namespace {

std::string tenths(double value) {
    return fixedPoint(std::llround(value * 10), 1);
}

std::string pair(Point point) {
    return "[" + tenths(point.x) + "," + tenths(point.y) + "]";
}

std::string list(const Box& box) {
    return "[" + std::to_string(box.left) + "," + std::to_string(box.top) + "," + std::to_string(box.width) + "," +
           std::to_string(box.height) + "]";
}

/// "start":"1970...","start_ns":0
std::string moment(const std::string& name, std::int64_t time_ns) {
    return "\"" + name + "\":\"" + rfc3339(time_ns) + "\",\"" + name + "_ns\":" + std::to_string(time_ns);
}

}  // namespace

std::string trackJson(std::string_view camera, const Track& track, std::int64_t time_ns, int width, int height,
                      const std::optional<Box>& region) {
    std::string text = "{\"camera\":" + jsonString(camera) + ",\"track\":" + std::to_string(track.number);
    text += ",\"state\":\"" + std::string(nameOf(track.state)) + "\"," + moment("start", track.start_ns);
    text += "," + moment("time", time_ns);
    text += ",\"size\":[" + std::to_string(width) + "," + std::to_string(height) + "]";
    text += ",\"region\":" + (region ? list(*region) : "null");
    text +=
        ",\"box\":" + list(track.box) + ",\"centre\":" + pair(track.centre) + ",\"velocity\":" + pair(track.velocity);
    text += ",\"objects\":[";
    for (std::size_t i = 0; i < track.objects.size(); ++i)
        text += (i == 0 ? "" : ",") + std::to_string(track.objects[i]);
    text += "],\"area\":" + std::to_string(track.area) + ",\"path_px\":" + tenths(track.path_px);
    return text + ",\"frames\":" + std::to_string(track.frames);
}

}  // namespace fleifeisa::host
