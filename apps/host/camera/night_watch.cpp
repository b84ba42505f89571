#include "camera/night_watch.h"

#include <utility>

#include "tracks/scene_state.h"

namespace fleifeisa::host {
namespace {

constexpr std::int64_t kWhile = 10'000'000'000;  // ns; headlights, lightning and a dazzled camera are shorter

}  // namespace

std::optional<std::int64_t> NightWatch::update(std::span<const std::uint8_t> rgb, int width, int height,
                                               std::int64_t time_ns) {
    const double share = colourShare(rgb, width, height);
    const bool other = grey_ ? share > kColourShare : share < kGreyShare;
    if (!other) {
        since_ns_.reset();
        return std::nullopt;
    }
    if (!since_ns_ || time_ns < *since_ns_) since_ns_ = time_ns;
    if (time_ns - *since_ns_ < kWhile) return std::nullopt;
    grey_ = !grey_;
    return std::exchange(since_ns_, std::nullopt);
}

}  // namespace fleifeisa::host
