// A coarse map of the frame in tiles of 4x4 pixels: where to look, and what supports a component. Painting costs the
// same for one pixel and for the whole frame, so thousands of boxes a reply cost thousands of steps.
#pragma once

#include <cstdint>
#include <vector>

#include "tracks/planes.h"

namespace fleifeisa::host {

constexpr int kTileBits = 2;  ///< a tile is 4 pixels wide and high

class TileMap {
 public:
    void begin(int width, int height);
    /// Every tile that the box touches.
    void add(const Box& box);
    /// After the last add.
    void finish();

    int columns() const { return columns_; }
    int rows() const { return rows_; }
    /// 0 or 1 for each tile of a row of tiles.
    const std::uint8_t* row(int tile_y) const { return set_.data() + static_cast<std::size_t>(tile_y * columns_); }
    bool pixel(int x, int y) const { return row(y >> kTileBits)[x >> kTileBits] != 0; }

 private:
    int width_ = 0, height_ = 0, columns_ = 0, rows_ = 0;
    std::vector<std::int32_t> corners_;  // summed up to the left and above: boxes over a tile; one row and column more
    std::vector<std::uint8_t> set_;
};

}  // namespace fleifeisa::host
