// From a frame and its background to components: threshold, shadow test, opening and closing, labelling. Only where the
// analyzer or a track points.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "tracks/background.h"
#include "tracks/tiles.h"

namespace fleifeisa::host {

/// Pixels from (begin) to (end - 1) of a row.
struct Run {
    int y, begin, end;
};

/// 8-connected foreground.
struct Component {
    Box box;
    int pixels = 0;
    int supported = 0;          ///< of its pixels, in tiles of the support map
    std::span<const Run> runs;  ///< by row, then column
};

class Foreground {
 public:
    void reset(int width, int height);
    /// Components of at least so many pixels, largest boxes' order undefined but the same everywhere (by first pixel).
    /// Valid until the next call.
    std::span<const Component> find(SmoothFrame& frame, const Background& background, const TileMap& where,
                                    const TileMap& support, bool shadow_test, int least_pixels);
    /// The mask after opening and closing, for x and y up to one pixel outside of the frame.
    bool at(int x, int y) const { return mask_[index(x, y)] != 0; }
    /// Row of the mask, 0 or 1; [-1] and [width] may be read.
    const std::uint8_t* row(int y) const { return mask_.data() + index(0, y); }

 private:
    std::size_t index(int x, int y) const {
        return static_cast<std::size_t>(y + 2) * stride_ + static_cast<std::size_t>(x + 2);
    }
    void threshold(SmoothFrame& frame, const Background& background, const TileMap& where, bool shadow_test);
    void clean();
    void label();
    int root(int run);
    void collect(const TileMap& support, int least_pixels);

    int width_ = 0, height_ = 0;
    std::size_t stride_ = 0;
    int first_ = 0, last_ = 0;                // rows that may hold something: [first_, last_)
    std::vector<std::uint8_t> mask_, other_;  // two pixels of margin on every side, always 0
    std::vector<Run> runs_, ordered_;
    std::vector<int> parents_, members_;
    std::vector<Component> components_;
};

}  // namespace fleifeisa::host
