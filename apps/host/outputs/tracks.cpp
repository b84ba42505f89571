#include "outputs/tracks.h"

#include <cmath>
#include <exception>

#include "common/text.h"

namespace fleifeisa::host {
namespace {

std::string momentText(std::int64_t sequence, std::int64_t time_ns) {
    return "{\"sequence\":" + std::to_string(sequence) + ",\"timestamp\":\"" + rfc3339(time_ns) +
           "\",\"time_ns\":" + std::to_string(time_ns) + "}";
}

std::string pathText(const TrackPath& path) {
    std::string text = "[";
    for (const PathPoint& point : path.points()) {
        if (text.size() > 1) text += ',';
        text += '[' + std::to_string(point.sequence) + ',' + fixedPoint(std::int64_t{point.x2} * 5, 1) + ',' +
                fixedPoint(std::int64_t{point.y2} * 5, 1) + ']';
    }
    return text + "]";
}

}  // namespace

void TracksOutput::started(const CameraInfo& camera) {
    camera_ = camera.name;
    write(follower_.endAll(), "restart");
}

void TracksOutput::frame(const FrameResult& result) {
    const FollowedFrame followed = follower_.frame(result);
    for (std::size_t i = 0; i < result.objects.size(); ++i) {
        if (!isTrack(followed.numbers[i])) continue;
        Track& track = tracks_[followed.numbers[i]];
        const Moment now{result.sequence, result.time_ns};
        if (track.path.sightings() == 0) track.start = now;
        track.end = now;
        track.path.add(result.sequence, result.objects[i]);
    }
    // Last, because it may throw. Tracks that ended are never among those of this frame's objects.
    write(followed.ended, "unseen");
}

void TracksOutput::write(std::span<const std::int64_t> ended, std::string_view reason) {
    std::exception_ptr failure;
    for (const std::int64_t number : ended) {
        const Track& track = tracks_.at(number);
        std::string line = "{\"camera\":" + jsonString(camera_) + ",\"track\":" + std::to_string(number) +
                           ",\"id\":" + std::to_string(number % kTrackNumberStep) + ",\"ended\":\"";
        line += reason;
        line += "\",\"start\":" + momentText(track.start.sequence, track.start.time_ns);
        line += ",\"end\":" + momentText(track.end.sequence, track.end.time_ns);
        line += ",\"frames\":" + std::to_string(track.path.sightings());
        line += ",\"length\":" + fixedPoint(std::llround(track.path.length() * 10), 1);
        line += ",\"path\":" + pathText(track.path) + "}\n";
        tracks_.erase(number);
        file_.write(line);
        try {
            file_.endRecord();
            file_.flush();
        } catch (const OutputError&) {
            failure = std::current_exception();  // the other tracks have ended, too
        }
    }
    if (failure) std::rethrow_exception(failure);
}

void TracksOutput::finish() {
    write(follower_.endAll(), "finish");
    file_.close();
}

}  // namespace fleifeisa::host
