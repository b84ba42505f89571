#include "recorder/ring.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <tuple>

#include "common/text.h"

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;

/// An event between two runs belongs to the one before, if that ended no longer ago.
constexpr std::int64_t kNearNs = 60'000'000'000;

}  // namespace

std::string segmentName(const RingSegment& segment) {
    std::string name = rfc3339(segment.start_ns).substr(0, 10) + '/';
    for (const std::int64_t number : {segment.run, segment.number, segment.start_ns, segment.end_ns})
        name += std::to_string(number) + '-';
    return name + (segment.key ? "k.ts" : "p.ts");
}

std::optional<RingSegment> parseSegmentName(const std::string& name) {
    RingSegment segment;
    const std::size_t begin = name.rfind('/') + 1;
    const char* at = name.data() + begin;
    const char* const end = name.data() + name.size();
    for (std::int64_t* number : {&segment.run, &segment.number, &segment.start_ns, &segment.end_ns}) {
        const auto [stop, error] = std::from_chars(at, end, *number);
        if (error != std::errc() || *number < 0 || stop == end || *stop != '-') return std::nullopt;
        at = stop + 1;
    }
    const std::string_view rest(at, end);
    if ((rest != "k.ts" && rest != "p.ts") || segment.end_ns < segment.start_ns) return std::nullopt;
    segment.key = rest[0] == 'k';
    return segment;
}

void Ring::load() {
    std::vector<RingSegment> found;
    std::error_code error;
    fs::recursive_directory_iterator entry(directory_, error), end;
    for (; !error && entry != end; entry.increment(error)) {
        std::error_code none;
        if (!entry->is_regular_file(none)) continue;
        const std::string name = entry->path().filename().string();
        if (name.ends_with(".part")) {
            fs::remove(entry->path(), none);
        } else if (auto segment = parseSegmentName(name)) {
            const auto bytes = entry->file_size(none);
            if (none) continue;
            segment->bytes = static_cast<std::int64_t>(bytes);
            found.push_back(*segment);
        }
    }
    std::ranges::sort(found, {}, [](const RingSegment& one) { return std::tuple(one.run, one.number); });
    // In front of what was recorded meanwhile.
    for (auto segment = found.rbegin(); segment != found.rend(); ++segment) {
        segments_.push_front(*segment);
        bytes_ += segment->bytes;
    }
}

std::string Ring::path(const RingSegment& segment) const {
    return directory_ + '/' + segmentName(segment);
}

void Ring::add(const RingSegment& segment) {
    segments_.push_back(segment);
    bytes_ += segment.bytes;
}

std::optional<RingSegment> Ring::takeOldest() {
    if (segments_.empty()) return std::nullopt;
    const RingSegment oldest = segments_.front();
    segments_.pop_front();
    bytes_ -= oldest.bytes;
    return oldest;
}

std::vector<RingSegment> Ring::cut(std::int64_t from_ns, std::int64_t at_ns, std::int64_t to_ns) const {
    // The run of the latest segment that began by then; of the first one after it, where that is too long ago.
    std::int64_t run = -1;
    for (const RingSegment& each : segments_) {
        if (each.start_ns <= at_ns && each.end_ns >= at_ns - kNearNs) run = each.run;
        if (run < 0 && each.start_ns > at_ns && each.start_ns <= to_ns) run = each.run;
    }
    std::vector<RingSegment> chosen;
    for (const RingSegment& each : segments_) {
        if (each.run != run || each.start_ns > to_ns) continue;
        // The latest one that can be begun with and holds nothing later than what is wanted; else the first.
        if (each.key && (chosen.empty() || each.start_ns <= from_ns)) chosen.clear();
        if (each.key || !chosen.empty()) chosen.push_back(each);
    }
    return chosen;
}

}  // namespace fleifeisa::host
