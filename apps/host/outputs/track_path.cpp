#include "outputs/track_path.h"

#include <cmath>

namespace fleifeisa::host {

void TrackPath::add(std::int64_t time_ns, Point centre) {
    const PathPoint point{time_ns, std::llround(2 * centre.x), std::llround(2 * centre.y)};
    if (!points_.empty()) {
        // Whole numbers until the root, so that the length is the same everywhere.
        const std::int64_t dx = point.x2 - points_.back().x2, dy = point.y2 - points_.back().y2;
        length_ += std::sqrt(static_cast<double>(dx * dx + dy * dy)) / 2;
    }
    if (last_is_extra_) points_.pop_back();
    points_.push_back(point);
    last_is_extra_ = sightings_ % stride_ != 0;
    ++sightings_;
    if (points_.size() < kMaxPoints || last_is_extra_) return;
    for (std::size_t i = 0; 2 * i < points_.size(); ++i) points_[i] = points_[2 * i];
    points_.resize((points_.size() + 1) / 2);
    stride_ *= 2;
    if (points_.back().time_ns != time_ns) {
        points_.push_back(point);
        last_is_extra_ = true;
    }
}

}  // namespace fleifeisa::host
