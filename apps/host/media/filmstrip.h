// A filmstrip: one small picture a second of an event, in one JPEG that every page can show.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "outputs/picture.h"

namespace fleifeisa::host {

/// A small picture of the whole frame.
struct Tile {
    std::int64_t time_ns = 0;
    std::string jpeg;  ///< kept compressed: an event may have many, and many events run
};
using SharedTile = std::shared_ptr<const Tile>;

/// A tile's picture is at most so large. @throws OutputError
SharedTile tileOf(const PictureView& picture, std::int64_t time_ns);

/// Bounded: an event that has more seconds than tiles has one every second one of them, then every fourth ...
class Filmstrip {
 public:
    static constexpr std::size_t kMostTiles = 60;
    static constexpr int kColumns = 10;

    /// In order of their times, a second apart or more.
    void add(const SharedTile& tile);
    bool empty() const { return tiles_.empty(); }

    struct Strip {
        std::string jpeg, details;  ///< details: MediaKind::kStrip
        int width = 0, height = 0;
        std::int64_t start_ns = 0, end_ns = 0;
    };
    /// @pre not empty  @throws OutputError
    Strip strip() const;

 private:
    std::vector<SharedTile> tiles_;
    std::size_t offered_ = 0, every_ = 1;  ///< of what was offered, one in so many is kept
};

}  // namespace fleifeisa::host
