#include "outputs/track_table.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "outputs/shown.h"

namespace fleifeisa::host {
namespace {

// A camera may play for days: both the samples of a track and the number of tracks are bounded.
constexpr std::size_t kMaxSamples = 4096, kMaxTracks = 20'000;
constexpr std::int64_t kShortFrames = 10;

std::int16_t toShort(int value) {
    return static_cast<std::int16_t>(std::clamp(value, -32768, 32767));
}

int median(std::vector<std::int16_t> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// Keeps every other value.
void halve(std::vector<std::int16_t>& values) {
    for (std::size_t i = 0; 2 * i < values.size(); ++i) values[i] = values[2 * i];
    values.resize((values.size() + 1) / 2);
}

}  // namespace

void TrackTable::sample(Row& row, const Box& box) {
    if (row.frames++ % row.stride != 0) return;
    row.left.push_back(toShort(box.left));
    row.top.push_back(toShort(box.top));
    row.width.push_back(toShort(box.width));
    row.height.push_back(toShort(box.height));
    if (row.left.size() < kMaxSamples) return;
    for (auto* values : {&row.left, &row.top, &row.width, &row.height}) halve(*values);
    row.stride *= 2;
}

void TrackTable::forgetShort() {
    const std::size_t before = tracks_.size();
    std::erase_if(tracks_, [](const auto& entry) { return entry.second.frames < kShortFrames; });
    if (tracks_.size() > kMaxTracks / 2) tracks_.erase(tracks_.begin(), std::next(tracks_.begin(), kMaxTracks / 4));
    forgotten_ += before - tracks_.size();
}

void TrackTable::frame(const FrameResult& result) {
    for (const Track& track : result.tracks.tracks) {
        if (!isSeen(track, result.time_ns) || isLoose(track)) continue;
        Row& row = tracks_[track.number];
        if (row.frames == 0) row.first = result.sequence;
        row.path = track.path_px;
        row.last = result.sequence;
        sample(row, track.box);
    }
    if (tracks_.size() > kMaxTracks) forgetShort();
}

std::string TrackTable::text(std::size_t rows) const {
    if (tracks_.empty()) return "Nothing was tracked.\n";
    std::vector<const std::pair<const std::int64_t, Row>*> chosen;
    for (const auto& entry : tracks_) chosen.push_back(&entry);
    std::stable_sort(chosen.begin(), chosen.end(),
                     [](auto* a, auto* b) { return a->second.frames > b->second.frames; });
    const std::size_t shown = std::min(rows, chosen.size());
    chosen.resize(shown);
    std::stable_sort(chosen.begin(), chosen.end(), [](auto* a, auto* b) { return a->second.first < b->second.first; });
    std::string text = " track   first frame    last   path/px   median box (left, top, width x height)\n";
    for (const auto* entry : chosen) {
        const Row& t = entry->second;
        std::array<char, 160> line{};
        std::snprintf(line.data(), line.size(), "%6lld  %12lld  %6lld  %8.0f   %5d, %5d, %5d x %d\n",
                      static_cast<long long>(entry->first), static_cast<long long>(t.first),
                      static_cast<long long>(t.last), t.path, median(t.left), median(t.top), median(t.width),
                      median(t.height));
        text += line.data();
    }
    if (size() > shown)
        text += "(the " + std::to_string(shown) + " longest of " + std::to_string(size()) + " tracks)\n";
    return text;
}

}  // namespace fleifeisa::host
