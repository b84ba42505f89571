// Colours of tracks: the same in the video and in the report.
#pragma once

#include <array>
#include <cstdint>

#include "outputs/track_follower.h"

namespace fleifeisa::host {

struct Rgb {
    std::uint8_t red, green, blue;
};

/// Bright and far apart from their neighbours, to be seen on pictures with a dark outline.
constexpr std::array<Rgb, 10> kTrackColours = {{
    {255, 99, 71},    // red
    {64, 196, 255},   // sky
    {255, 202, 40},   // amber
    {178, 132, 255},  // violet
    {105, 219, 124},  // green
    {255, 130, 203},  // pink
    {38, 222, 199},   // turquoise
    {255, 158, 64},   // orange
    {143, 164, 255},  // blue
    {212, 225, 87},   // lime
}};

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
