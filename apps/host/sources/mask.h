// Masks: parts of the picture that nothing is to be looked for in, painted over before anything looks.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace fleifeisa::host {

/// In shares of the source picture (before region and size): 0 to 1 from left, from top downwards.
struct SharePoint {
    double x = 0, y = 0;

    bool operator==(const SharePoint&) const = default;
};

/// A polygon of at least three points, closed by itself.
using Mask = std::vector<SharePoint>;

/// Which part of the source picture a frame shows, in shares of it.
struct ShownPart {
    double left = 0, top = 0, width = 1, height = 1;
};

/// What masks are painted with.
constexpr std::uint8_t kMaskGrey = 128;

/// Paints every pixel grey whose middle lies in a mask (even-odd rule). `rgb` has width * height * 3 bytes.
void paintMasks(std::span<const Mask> masks, const ShownPart& part, int width, int height, std::span<std::uint8_t> rgb);

/// Paints private areas black, and two pixels around them, into which colours of a decoder's planes may have run. To be
/// called before the picture is scaled, so that nothing of them is mixed with what is beside them.
void paintPrivate(std::span<const Mask> areas, const ShownPart& part, int width, int height,
                  std::span<std::uint8_t> rgb);

}  // namespace fleifeisa::host
