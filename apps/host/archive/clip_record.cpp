#include "archive/clip_record.h"

#include <xxhash.h>

#include <array>
#include <cstdio>

#include "outputs/recording.h"

namespace fleifeisa::host {

struct ClipRecord::Pixels {
    struct Free {
        void operator()(XXH3_state_t* held) const { ::XXH3_freeState(held); }
    };
    std::unique_ptr<XXH3_state_t, Free> state{::XXH3_createState()};

    Pixels() { ::XXH3_128bits_reset(state.get()); }
    void add(const void* bytes, std::size_t count) { ::XXH3_128bits_update(state.get(), bytes, count); }
};

ClipRecord::ClipRecord() : pixels_(std::make_unique<Pixels>()) {}

ClipRecord::~ClipRecord() = default;

void ClipRecord::frame(const FrameResult& result) {
    if (summary_.frames++ == 0) summary_.first_ns = result.time_ns;
    summary_.detected += result.detection ? 1 : 0;
    summary_.last_ns = result.time_ns;
    summary_.width = result.width;
    summary_.height = result.height;
    const std::string head = std::to_string(result.width) + ' ' + std::to_string(result.height) + ' ' +
                             std::to_string(result.time_ns) + '\n';
    pixels_->add(head.data(), head.size());
    pixels_->add(result.rgb.data(), result.rgb.size());
    replies_.add(result.reply);
    tracks_.add(recordedTracks(result.tracks));
}

void ClipRecord::ended(const TrackFrame& frame, TrackEnd why) {
    tracks_.add(std::string_view(nameOf(why)));
    tracks_.add(recordedTracks(frame));
}

void ClipRecord::ruled(const RuleResults& results) {
    events_.add(recordedEvents(results));
}

void ClipRecord::write(ClipSummary& summary) {
    const ClipSummary told = summary;
    summary = summary_;
    summary.name = told.name;
    summary.clip = told.clip;
    summary.damage = told.damage;
    const XXH128_hash_t hash = ::XXH3_128bits_digest(pixels_->state.get());
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%016llx%016llx", static_cast<unsigned long long>(hash.high64),
                  static_cast<unsigned long long>(hash.low64));
    summary.frames_hash = text.data();
    summary.replies_hash = replies_.text();
    summary.tracks_hash = tracks_.text();
    summary.events_hash = events_.text();
}

}  // namespace fleifeisa::host
