// Which colour a track has: the same in the video and in the report.
#pragma once

#include "common/palette.h"
#include "outputs/shown.h"

namespace fleifeisa::host {

constexpr Rgb kLooseColour = {200, 200, 200};  ///< objects without a track

/// Numbers that stand side by side, and numbers a multiple of ten apart, rarely share a colour.
constexpr std::size_t trackColourIndex(std::int64_t number) {
    constexpr std::int64_t kPeriod = 100'000;  // raw numbers (raw_tracks.h): those of one id share its colour
    const auto mixed = static_cast<std::uint32_t>(number % kPeriod) * 2654435769u;
    return (mixed >> 16) * kTrackColours.size() >> 16;
}

constexpr Rgb trackColour(std::int64_t number) {
    return kTrackColours[trackColourIndex(number)];
}

}  // namespace fleifeisa::host
