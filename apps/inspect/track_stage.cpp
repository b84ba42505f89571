#include "inspect/track_stage.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <limits>
#include <stdexcept>

#include "tracks/constants.h"
#include "tracks/reasons.h"

namespace fleifeisa::inspect {

namespace {

constexpr std::int64_t kSecond = 1'000'000'000, kFrameTime = kSecond / 10;

host::FilterSettings settingsOf(const Settings& settings) {
    host::FilterSettings result;
    result.infrared = settings.type == IR;
    return result;
}

std::string seconds(double v) {
    char text[64];
    std::snprintf(text, sizeof text, "%.2f s", v);
    return text;
}

}  // namespace

std::optional<std::int64_t> parseTimestamp(const std::string& text) {
    std::size_t at = text.find_first_not_of(' ');
    const auto digit = [&] { return at < text.size() && std::isdigit(static_cast<unsigned char>(text[at])) != 0; };
    if (at == std::string::npos || !digit()) return std::nullopt;
    std::int64_t whole = 0, fraction = 0, unit = kSecond;
    for (; digit(); at++) {
        whole = whole * 10 + (text[at] - '0');
        if (whole > std::numeric_limits<std::int64_t>::max() / (4 * kSecond)) return std::nullopt;
    }
    if (at < text.size() && text[at] == '.') {
        for (at++; digit(); at++) {
            unit /= 10;  // digits behind the ninth count nothing
            fraction += (text[at] - '0') * unit;
        }
    }
    if (text.find_first_not_of(' ', at) != std::string::npos) return std::nullopt;
    return whole * kSecond + fraction;
}

TrackStage::TrackStage(const Settings& settings)
    : settings_(settingsOf(settings)), filter_(settings_, settings.parameters.bg_frames) {}

void TrackStage::frame(Session& session, const SourceFrame& frame, bool explain) {
    const std::int64_t next = time_ns_ ? *time_ns_ + kFrameTime : kFrameTime;
    const std::int64_t time = parseTimestamp(frame.timestamp).value_or(next);
    time_ns_ = time_ns_ && time <= *time_ns_ ? next : time;

    host::Reply reply;
    try {
        reply = host::parseReply(session.answer());
        refused_.clear();
    } catch (const std::runtime_error& e) {  // beyond what the host takes: it would give this frame up
        refused_ = e.what();
        result_ = {};
        view_ = {};
        return;
    }
    const KsColorImage& image = session.frame();
    host::FilterInput input;
    input.time_ns = *time_ns_;
    input.width = image.NofC;
    input.height = image.NofR;
    input.rgb = {image.rawsrc, static_cast<std::size_t>(image.NofC) * static_cast<std::size_t>(image.NofR) * 3};
    input.detection = reply.detection;
    input.objects = reply.objects;
    result_ = filter_.frame(input, explain ? &view_ : nullptr);
}

std::string TrackStage::whyOf(const host::Mover& mover) const {
    const auto text = [&mover](host::Reason reason) -> std::string {
        switch (reason) {
            case host::Reason::kTooFewSightings:
                return "seen " + std::to_string(mover.track.frames) + " of " + std::to_string(host::kBirthSightings) +
                       " times";
            case host::Reason::kTooYoung:
                return "younger than " + seconds(host::kBirthSeconds);
            case host::Reason::kTooSmall:
                return "too small";
            case host::Reason::kInGroup:
                return "in one blob with others";
            case host::Reason::kStandsStill:
                return "stands still, its place is watched";
            case host::Reason::kPredicted:
                return "not seen, shown where it is expected";
            case host::Reason::kWaitedFor:
                return "not seen, waited for";
            case host::Reason::kUnsupported:
                return "not looked for without the analyzer's support";
            default:
                return "never left the place of its birth";
        }
    };
    std::string why;
    for (const host::Reason reason : host::reasonsOf(mover, view_, *time_ns_))
        why += (why.empty() ? "" : "; ") + text(reason);
    return why;
}

TrackFacts TrackStage::factsOf(const host::Track& track) const {
    TrackFacts f{};
    f.number = track.number;
    f.state = host::nameOf(track.state);
    f.x = track.box.left;
    f.y = track.box.top;
    f.width = track.box.width;
    f.height = track.box.height;
    f.frames = track.frames;
    f.missed = static_cast<double>(*time_ns_ - track.seen_ns) / 1e9;
    f.age = static_cast<double>(*time_ns_ - track.start_ns) / 1e9;
    f.area = f.largest = track.area;
    f.group = track.merged_with;
    if (track.state == host::TrackState::kEnded) f.why = host::nameOf(track.ended);
    return f;
}

void TrackStage::gather(FrameFacts& facts) const {
    facts.scene = refused_.empty() ? host::nameOf(result_.scene) : "reply refused: " + refused_;
    facts.least_pixels = view_.least_pixels;
    facts.dropped = static_cast<int>(view_.dropped.size());
    facts.blobs = static_cast<int>(view_.blobs.size());
    // Tracks are told confirmed first and tentative ones in the order of the movers; those that ended have none.
    std::size_t tentative = 0;
    for (const host::Track& track : result_.tracks) {
        TrackFacts f = factsOf(track);
        const auto mover = std::find_if(
            view_.movers.begin() + static_cast<std::ptrdiff_t>(track.number == 0 ? tentative : 0), view_.movers.end(),
            [&](const host::Mover& m) { return m.confirmed == (track.number != 0) && m.track.number == track.number; });
        if (track.state != host::TrackState::kEnded && mover != view_.movers.end()) {
            if (track.number == 0) tentative = static_cast<std::size_t>(mover - view_.movers.begin()) + 1;
            f.missed = mover->missed;
            f.unsupported = mover->unsupported;
            f.largest = mover->area;
            f.why = whyOf(*mover);
        }
        facts.tracks.push_back(f);
    }
}

}  // namespace fleifeisa::inspect
