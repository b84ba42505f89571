// Blobs: what the refiner hands to the tracker. Components that belong together are joined, people side by side parted.
#pragma once

#include <algorithm>
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

/// One above the other and near, as legs and upper body are.
bool areStacked(const Box& a, const Box& b);

/// Joins pieces that lie one above the other, until there are none; never two that are known as different tracks which
/// `apart` tells to be different things.
template <class Apart>
void joinPieces(std::vector<Blob>& blobs, Apart&& apart) {
    for (bool again = true; again;) {
        again = false;
        for (std::size_t i = 0; i < blobs.size(); ++i) {
            for (std::size_t k = i + 1; k < blobs.size();) {
                Blob &a = blobs[i], &b = blobs[k];
                const bool different = a.known != 0 && b.known != 0 && a.known != b.known && apart(a.known, b.known);
                if (different || !areStacked(a.box, b.box)) {
                    ++k;
                    continue;
                }
                a.box = unionOf(a.box, b.box);
                a.pixels += b.pixels;
                a.known = std::max(a.known, b.known);
                blobs.erase(blobs.begin() + static_cast<std::ptrdiff_t>(k));
                again = true;
            }
        }
    }
}

/// Parts a component at a clear valley between two people. Appends one blob or two.
void splitPeople(const Component& one, std::vector<Blob>& blobs);

}  // namespace fleifeisa::host
