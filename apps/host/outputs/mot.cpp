#include "outputs/mot.h"

#include "outputs/shown.h"

namespace fleifeisa::host {

void MotOutput::frame(const FrameResult& result) {
    for (const Track& track : result.tracks.tracks) {
        if (!isShown(track)) continue;
        std::string line = std::to_string(result.sequence);
        const std::int64_t values[] = {track.number, track.box.left + 1, track.box.top + 1, track.box.width,
                                       track.box.height};
        for (const std::int64_t value : values) line += ',' + std::to_string(value);
        // Confidence 1: nothing says how sure a track is. There are no positions in the world.
        file_.write(line + ",1,-1,-1,-1\n");
    }
    endRecord(result);
}

}  // namespace fleifeisa::host
