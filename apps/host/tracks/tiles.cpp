#include "tracks/tiles.h"

namespace fleifeisa::host {

void TileMap::begin(int width, int height) {
    width_ = width;
    height_ = height;
    columns_ = (width + (1 << kTileBits) - 1) >> kTileBits;
    rows_ = (height + (1 << kTileBits) - 1) >> kTileBits;
    corners_.assign(static_cast<std::size_t>(columns_ + 1) * static_cast<std::size_t>(rows_ + 1), 0);
    set_.resize(static_cast<std::size_t>(columns_) * static_cast<std::size_t>(rows_));
}

void TileMap::add(const Box& box) {
    const Box part = clipped(box, width_, height_);
    if (part.width == 0 || part.height == 0) return;
    const int left = part.left >> kTileBits, right = ((part.right() - 1) >> kTileBits) + 1;
    const int top = part.top >> kTileBits, bottom = ((part.bottom() - 1) >> kTileBits) + 1;
    const auto corner = [this](int x, int y) -> std::int32_t& {
        return corners_[static_cast<std::size_t>(y * (columns_ + 1) + x)];
    };
    ++corner(left, top);
    --corner(right, top);
    --corner(left, bottom);
    ++corner(right, bottom);
}

void TileMap::finish() {
    const std::size_t stride = static_cast<std::size_t>(columns_) + 1;
    for (std::size_t y = 0; y < static_cast<std::size_t>(rows_); ++y) {
        std::int32_t* sums = corners_.data() + y * stride;
        std::uint8_t* set = set_.data() + y * (stride - 1);
        std::int32_t along = 0;
        for (std::size_t x = 0; x + 1 < stride; ++x) {
            along += sums[x];
            sums[x] = along + (y > 0 ? sums[x - stride] : 0);
            set[x] = sums[x] > 0;
        }
    }
}

}  // namespace fleifeisa::host
