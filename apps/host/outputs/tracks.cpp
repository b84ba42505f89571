#include "outputs/tracks.h"

#include <exception>

#include "common/text.h"
#include "outputs/shown.h"
#include "outputs/track_json.h"

namespace fleifeisa::host {
namespace {

std::string pathText(const TrackPath& path) {
    std::string text = "[";
    for (const PathPoint& point : path.points()) {
        if (text.size() > 1) text += ',';
        text += '[' + std::to_string(point.time_ns) + ',' + fixedPoint(point.x2 * 5, 1) + ',' +
                fixedPoint(point.y2 * 5, 1) + ']';
    }
    return text + "]";
}

}  // namespace

void TracksOutput::started(const CameraInfo& camera) {
    camera_ = camera.name;
    region_ = camera.region;
}

void TracksOutput::frame(const FrameResult& result) {
    for (const Track& track : result.tracks.tracks) {
        if (!isSeen(track, result.time_ns) || isLoose(track)) continue;
        Open& open = open_[track.number];
        open.latest = track;
        open.width = result.width;
        open.height = result.height;
        open.path.add(result.time_ns, track.centre);
    }
    writeEnded(result.tracks);  // last, because it may throw
}

void TracksOutput::writeEnded(const TrackFrame& frame) {
    std::exception_ptr failure;
    for (const Track& track : frame.tracks) {
        if (track.state != TrackState::kEnded || !open_.contains(track.number)) continue;
        try {
            write(track);
        } catch (const OutputError&) {
            failure = std::current_exception();  // the other tracks have ended, too
        }
    }
    if (failure) std::rethrow_exception(failure);
}

void TracksOutput::write(const Track& track) {
    const auto entry = open_.find(track.number);
    Open& open = entry->second;
    open.latest.state = TrackState::kEnded;
    open.latest.path_px = track.path_px;
    open.latest.frames = track.frames;
    std::string line =
        trackJson(camera_, open.latest, open.latest.seen_ns, open.width, open.height, region_) + ",\"ended\":\"";
    line += nameOf(track.ended);
    line += "\",\"path\":" + pathText(open.path) + "}\n";
    open_.erase(entry);
    file_.write(line);
    file_.endRecord();
    file_.flush();
}

}  // namespace fleifeisa::host
