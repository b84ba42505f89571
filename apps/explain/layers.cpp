// Layers: a byte for every place of the picture. A place is a quarter of a cell, so that both lattices are seen as they
// lie, or some of those together where the frame is large.
#include <algorithm>
#include <cmath>
#include <vector>

#include "explain/answer.h"

namespace fleifeisa::explain {
namespace {

constexpr int kMost = 255;

/// 0 to 255 for 0 to `full`; what is more, or no number, counts as the most.
std::uint8_t level(double value, double full) {
    const double share = value / full * kMost;
    return static_cast<std::uint8_t>(share < kMost ? std::lround(std::max(0.0, share)) : kMost);
}

// One more than the logarithm of the seconds to the base 2, times 15: 2^16 s, 18 hours, are the most that is told
// apart.
constexpr double kAgeSteps = 15, kOldest = 65536;

std::uint8_t ageLevel(double seconds) {
    return static_cast<std::uint8_t>(std::lround(kAgeSteps * std::log2(1 + std::min(seconds, kOldest))));
}

/// 1 to 255 in turn, 0 for none.
std::uint8_t labelLevel(int label) {
    return static_cast<std::uint8_t>(label == 0 ? 0 : (label - 1) % kMost + 1);
}

/// What a cell is worth. Of the cells that share a place the greatest counts; of ages, the least.
class Worth {
 public:
    Worth(Layer layer, const Snapshot& snapshot) : layer_(layer), s_(snapshot) {
        const double high = snapshot.tracker()->cht;
        full_ = layer == Layer::kDifference ? (std::isfinite(high) && high > 0 ? 2 * high : 1)
                : layer == Layer::kAge      ? kOldest
                : layer == Layer::kLabels   ? kMost
                                            : 1;
    }
    double full() const { return full_; }
    std::uint8_t of(int cell) const {
        const GridColorDiff& g = s_.grid();
        switch (layer_) {
            case Layer::kDifference:
                return level(g.diff[cell], full_);
            case Layer::kConfidence:
                return level(g.conf[cell], full_);
            case Layer::kEdges:
                return level(g.der_conf[cell], full_);
            case Layer::kLabels:
                return labelLevel(g.label[cell]);
            default:
                return ageLevel(s_.secondsSince(cell));
        }
    }
    std::uint8_t both(std::uint8_t a, std::uint8_t b) const {
        return layer_ == Layer::kAge ? std::min(a, b) : std::max(a, b);
    }

 private:
    const Layer layer_;
    const Snapshot& s_;
    double full_ = 1;
};

int places(int pixels, int step) {
    return (pixels + step - 1) / step;
}

}  // namespace

LayerPicture layerOf(Layer layer, const Snapshot& s) {
    const GridColorDiff& g = s.grid();
    const BackgroundModel& b = s.background();
    const int quarter = std::max(1, g.cellsize_2);
    LayerPicture picture;
    for (picture.step = quarter; static_cast<std::size_t>(places(g.NofC, picture.step)) *
                                     static_cast<std::size_t>(places(g.NofR, picture.step)) >
                                 kMostPlaces;)
        picture.step += quarter;
    picture.width = places(g.NofC, picture.step);
    picture.height = places(g.NofR, picture.step);
    const Worth worth(layer, s);
    picture.full = worth.full();

    std::vector<std::uint8_t> cells(static_cast<std::size_t>(g.cnum));
    for (int k = 0; k < g.cnum; k++) cells[static_cast<std::size_t>(k)] = worth.of(k);
    const std::uint8_t none = layer == Layer::kAge ? kMost : 0;
    picture.bytes.assign(static_cast<std::size_t>(picture.width) * static_cast<std::size_t>(picture.height),
                         static_cast<char>(none));
    for (int r = 0; r < g.NofR; r += quarter) {
        for (int c = 0; c < g.NofC; c += quarter) {
            char& at =
                picture.bytes[static_cast<std::size_t>(r / picture.step) * static_cast<std::size_t>(picture.width) +
                              static_cast<std::size_t>(c / picture.step)];
            std::uint8_t value = cells[static_cast<std::size_t>(b.map1.At(r, c))];
            if (const int shifted = b.map2.At(r, c); shifted >= 0)
                value = worth.both(value, cells[static_cast<std::size_t>(shifted)]);
            at = static_cast<char>(worth.both(static_cast<std::uint8_t>(at), value));
        }
    }
    return picture;
}

}  // namespace fleifeisa::explain
