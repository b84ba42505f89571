// Blobs: what the refiner hands to the tracker. Components that belong together are joined, people side by side parted.
#pragma once

#include <span>
#include <vector>

#include "tracks/foreground.h"

namespace fleifeisa::host {

struct Blob {
    Box box;
    int pixels = 0;
    std::int64_t known = 0;  ///< the track that it is by itself, 0: none
};

/// Intersection's area; 64 bits, since boxes may be anything.
std::int64_t commonArea(const Box& a, const Box& b);
inline std::int64_t areaOf(const Box& box) {
    return std::int64_t{box.width} * box.height;
}
Box unionOf(const Box& a, const Box& b);

/// Joins pieces that lie one above the other, until there are none; never two that are known as different tracks.
void joinPieces(std::vector<Blob>& blobs);

/// Parts a component at a clear valley between two people. Appends one blob or two.
void splitPeople(const Component& one, std::vector<Blob>& blobs);

}  // namespace fleifeisa::host
