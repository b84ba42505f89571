#include "outputs/mot.h"

namespace fleifeisa::host {

void MotOutput::frame(const FrameResult& result) {
    const FollowedFrame followed = follower_.frame(result);
    for (std::size_t i = 0; i < result.objects.size(); ++i) {
        const AnalyzerObject& object = result.objects[i];
        std::string line = std::to_string(result.sequence);
        const std::int64_t values[] = {followed.numbers[i], object.left + 1, object.top + 1, object.width,
                                       object.height};
        for (const std::int64_t value : values) line += ',' + std::to_string(value);
        // Confidence 1: the density says how full a box is, not how sure. There are no positions in the world.
        file_.write(line + ",1,-1,-1,-1\n");
    }
    endRecord(result);
}

}  // namespace fleifeisa::host
