#include "tune/search.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <span>

namespace fleifeisa::host {
namespace {

constexpr double kGridShare = 0.6;   // of all candidates, at most: the rest refines
constexpr std::size_t kCentres = 3;  // candidates that are refined in each round
constexpr int kRounds = 20;          // of refinement, at most
constexpr double kSeenSteps = 20;    // things seen for 5 % longer is luck
constexpr double kLeastRatio = 1.1;  // of high over low: between them confidence rises
constexpr double kHighOverLow = 2;   // of the analyzer's own thresholds

constexpr std::array<int, 9> kSides = {160, 192, 224, 256, 320, 384, 448, 512, 640};
constexpr std::array<double, 9> kRates = {3, 4, 5, 6, 8, 10, 12, 15, 20};

// From the value that says most to the one that says least: what does not fit into the grid is left out from the end.
constexpr std::array<double, 4> kGridLow = {1, 0.25, 0.5, 2};
constexpr std::array<int, 3> kGridSides = {384, ParameterSet::kFull, 256};
constexpr std::array<double, 3> kGridRates = {0, 10, 5};
constexpr std::array<double, 3> kGridAreas = {5e-4, 1.5e-3, 2e-4};

/// So many significant digits, so that people can read what they copy.
double shortened(double value, int digits) {
    if (value <= 0) return 0;
    const double scale = std::pow(10.0, digits - 1 - std::floor(std::log10(value)));
    return std::round(value * scale) / scale;
}

/// The next value of a ladder beyond `value`, or `end` where there is none.
template <class T, std::size_t count>
T above(const std::array<T, count>& ladder, T value, T end) {
    const auto found = std::ranges::upper_bound(ladder, value);
    return found == ladder.end() ? end : *found;
}
template <class T, std::size_t count>
T below(const std::array<T, count>& ladder, T value) {
    const auto found = std::ranges::lower_bound(ladder, value);
    return found == ladder.begin() ? ladder.front() : *std::prev(found);
}

/// A dimension of the grid is cut by one value, the longest first.
template <std::size_t count>
void cut(std::array<std::size_t, count>& lengths) {
    --*std::ranges::max_element(lengths);
}

}  // namespace

/// What says the same is the same: sizes and rates beyond the clips', the learning time in frames.
ParameterSet Search::fitted(ParameterSet candidate) const {
    constexpr double kEnough = 0.95;  // of the clips' own rate is all of it
    if (candidate.longest_side >= space_.longest_side) candidate.longest_side = ParameterSet::kFull;
    if (candidate.rate >= kEnough * space_.rate) candidate.rate = 0;
    if (space_.infrared) candidate.shadow_test = false;
    candidate.low = shortened(candidate.low, 3);
    candidate.high = shortened(candidate.high, 3);
    candidate.least_area = shortened(candidate.least_area, 2);
    const double rate = candidate.rate > 0 ? candidate.rate : space_.rate;
    constexpr long kFewest = 8, kMost = 1'000'000;
    candidate.learning_frames =
        static_cast<int>(std::clamp(std::lround(space_.learning_seconds * rate), kFewest, kMost));
    return candidate;
}

std::vector<ParameterSet> Search::grid() const {
    std::array<std::size_t, 4> lengths = {kGridLow.size(), kGridSides.size(), kGridRates.size(), kGridAreas.size()};
    for (;;) {
        std::vector<ParameterSet> all;
        std::set<ParameterSet> seen = tried_;
        for (const double low : std::span(kGridLow).first(lengths[0]))
            for (const int side : std::span(kGridSides).first(lengths[1]))
                for (const double rate : std::span(kGridRates).first(lengths[2]))
                    for (const double area : std::span(kGridAreas).first(lengths[3]))
                        for (const bool shadow : {true, false}) {
                            const ParameterSet one =
                                fitted({low, kHighOverLow * low, side, rate, 0, area, shadow, present_.split_people});
                            if (seen.insert(one).second) all.push_back(one);
                        }
        if (static_cast<double>(all.size()) <= kGridShare * static_cast<double>(most_) ||
            *std::ranges::max_element(lengths) == 1)
            return all;
        cut(lengths);
    }
}

/// One step in each direction of each parameter. @param factor  of a step in thresholds and area
std::vector<ParameterSet> Search::around(const ParameterSet& centre, double factor) const {
    std::vector<ParameterSet> steps;
    const auto with = [&](const auto& change) {
        ParameterSet one = centre;
        change(one);
        steps.push_back(fitted(one));
    };
    for (const double by : {factor, 1 / factor}) {
        with([by](ParameterSet& c) { c.low *= by, c.high *= by; });
        with([by](ParameterSet& c) { c.high = std::max(kLeastRatio * c.low, c.high * by); });
        with([by](ParameterSet& c) { c.least_area *= by; });
    }
    with([](ParameterSet& c) { c.shadow_test = !c.shadow_test; });
    with([](ParameterSet& c) { c.split_people = !c.split_people; });
    const int side = std::min(centre.longest_side, space_.longest_side);
    with([side](ParameterSet& c) { c.longest_side = below(kSides, side); });
    with([side](ParameterSet& c) { c.longest_side = above(kSides, side, ParameterSet::kFull); });
    const double rate = centre.rate > 0 ? centre.rate : space_.rate;
    with([rate](ParameterSet& c) { c.rate = below(kRates, rate); });
    with([rate](ParameterSet& c) { c.rate = above(kRates, rate, 0.0); });
    return steps;
}

std::vector<ParameterSet> Search::next(const std::vector<Judged>& judged) {
    std::vector<ParameterSet> chosen;
    const auto choose = [this, &chosen](const ParameterSet& one) {
        const bool known = one == same_as_present_ && !(one == present_);
        if (!known && tried_.size() < most_ && tried_.insert(one).second) chosen.push_back(one);
    };
    if (round_ < 0) {
        round_ = 0;
        choose(present_);
        for (const ParameterSet& one : grid()) choose(one);
        return chosen;
    }
    std::vector<Judged> order = judged;
    std::ranges::stable_sort(order, [this](const Judged& a, const Judged& b) { return better(a, b); });
    if (order.size() > kCentres) order.resize(kCentres);
    while (chosen.empty() && round_ < kRounds && tried_.size() < most_) {
        ++round_;
        const double factor = std::pow(2.0, 1.0 / (1 << std::min(round_ - 1, 3)));
        for (const Judged& centre : order)
            for (const ParameterSet& one : around(centre.candidate, factor)) choose(one);
    }
    return chosen;
}

/// Pixels a second: what the cost follows, and other than the cost the same in every run.
double Search::work(const ParameterSet& candidate) const {
    const double side = std::min(candidate.longest_side, space_.longest_side);
    return side * side * (candidate.rate > 0 ? std::min(candidate.rate, space_.rate) : space_.rate);
}

/// How much of what is set now it changes: of equals people keep what they know.
double Search::change(const ParameterSet& candidate) const {
    const auto steps = [](double one, double other) {
        return one > 0 && other > 0 ? std::abs(std::log2(one / other)) : one == other ? 0 : 1;
    };
    return steps(candidate.low, present_.low) + steps(candidate.high, present_.high) +
           steps(candidate.least_area, present_.least_area) + (candidate.shadow_test != present_.shadow_test ? 1 : 0) +
           (candidate.split_people != present_.split_people ? 1 : 0);
}

bool Search::better(const Judged& one, const Judged& other) const {
    const auto key = [this](const Judged& judged) {
        const Score& score = judged.score;
        const double seen =
            score.present > 0 ? static_cast<double>(score.seen) / static_cast<double>(score.present) : 0;
        return std::tuple(loss(score, weights_), -std::floor(seen * kSeenSteps), score.again, work(judged.candidate),
                          change(judged.candidate), judged.candidate);
    };
    return key(one) < key(other);
}

const Judged& Search::best(const std::vector<Judged>& judged) const {
    return *std::ranges::min_element(judged, [this](const Judged& a, const Judged& b) { return better(a, b); });
}

}  // namespace fleifeisa::host
