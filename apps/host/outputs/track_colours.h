// Which colour a track has: the same in the video and in the report.
#pragma once

#include "common/palette.h"
#include "outputs/track_follower.h"

namespace fleifeisa::host {

constexpr Rgb kLooseColour = {200, 200, 200};  ///< objects without a track

/// Ids that stand side by side, and ids a multiple of ten apart, rarely share a colour.
constexpr std::size_t trackColourIndex(std::int64_t number) {
    const auto mixed = static_cast<std::uint32_t>(number % kTrackNumberStep) * 2654435769u;
    return (mixed >> 16) * kTrackColours.size() >> 16;
}

constexpr Rgb trackColour(std::int64_t number) {
    return isTrack(number) ? kTrackColours[trackColourIndex(number)] : kLooseColour;
}

}  // namespace fleifeisa::host
