#include "tune/hold_out.h"

#include <algorithm>
#include <tuple>

#include "outputs/digest.h"

namespace fleifeisa::host {

std::vector<bool> heldOut(const std::vector<HeldOutClip>& clips) {
    constexpr std::size_t kShare = 3;
    std::vector<std::tuple<bool, std::string, std::size_t>> order;
    for (std::size_t i = 0; i < clips.size(); ++i)
        order.emplace_back(!clips[i].with_things, digestOf({clips[i].name}), i);
    std::ranges::sort(order);
    std::vector<bool> held(clips.size(), false);
    // Every third of all, the first kind first: both kinds are on both sides where there are enough.
    for (std::size_t i = kShare - 1; i < order.size(); i += kShare) held[std::get<2>(order[i])] = true;
    return held;
}

}  // namespace fleifeisa::host
