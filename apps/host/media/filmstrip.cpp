#include "media/filmstrip.h"

#include <algorithm>

namespace fleifeisa::host {
namespace {

constexpr int kTileWidth = 160, kTileHeight = 160;  ///< at most
constexpr int kBlock = 16;                          ///< a JPEG's colours come in such blocks: tiles do not share one
constexpr int kTileQuality = 80, kStripQuality = 75;

int wholeBlocks(int pixels) {
    return (pixels + kBlock - 1) / kBlock * kBlock;
}

}  // namespace

SharedTile tileOf(const PictureView& picture, std::int64_t time_ns) {
    const Picture small = reduced(picture, {0, 0, picture.width, picture.height}, kTileWidth, kTileHeight);
    return std::make_shared<const Tile>(Tile{time_ns, jpegOf(small, kTileQuality)});
}

void Filmstrip::add(const SharedTile& tile) {
    if (offered_++ % every_ != 0) return;
    tiles_.push_back(tile);
    if (tiles_.size() <= kMostTiles) return;
    for (std::size_t i = 0; 2 * i < tiles_.size(); ++i) tiles_[i] = tiles_[2 * i];
    tiles_.resize((tiles_.size() + 1) / 2);
    every_ *= 2;
}

Filmstrip::Strip Filmstrip::strip() const {
    std::vector<Picture> pictures;
    int tile_width = kBlock, tile_height = kBlock;
    for (const SharedTile& tile : tiles_) {
        pictures.push_back(pictureOf(tile->jpeg));
        tile_width = std::max(tile_width, wholeBlocks(pictures.back().width));
        tile_height = std::max(tile_height, wholeBlocks(pictures.back().height));
    }
    const int count = static_cast<int>(pictures.size()), columns = std::min(count, kColumns);
    Picture all;
    all.width = columns * tile_width;
    all.height = (count + columns - 1) / columns * tile_height;
    all.rgb.assign(static_cast<std::size_t>(all.width) * static_cast<std::size_t>(all.height) * 3, 0);
    Strip strip;
    strip.details = "{\"tile\":[" + std::to_string(tile_width) + ',' + std::to_string(tile_height) +
                    "],\"columns\":" + std::to_string(columns) + ",\"times_ns\":[";
    for (int i = 0; i < count; ++i) {
        const auto index = static_cast<std::size_t>(i);
        const Picture& picture = pictures[index];
        const int left = i % columns * tile_width + (tile_width - picture.width) / 2;
        const int top = i / columns * tile_height + (tile_height - picture.height) / 2;
        for (int y = 0; y < picture.height; ++y)
            std::copy_n(picture.rgb.begin() + std::ptrdiff_t{3} * y * picture.width, std::ptrdiff_t{3} * picture.width,
                        all.rgb.begin() + (std::ptrdiff_t{top + y} * all.width + left) * 3);
        strip.details += (i > 0 ? "," : "") + std::to_string(tiles_[index]->time_ns);
    }
    strip.details += "]}";
    strip.jpeg = jpegOf(all, kStripQuality);
    strip.width = all.width;
    strip.height = all.height;
    strip.start_ns = tiles_.front()->time_ns;
    strip.end_ns = tiles_.back()->time_ns;
    return strip;
}

}  // namespace fleifeisa::host
