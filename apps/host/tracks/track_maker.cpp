#include "tracks/track_maker.h"

#include <array>
#include <charconv>
#include <cmath>

namespace fleifeisa::host {
namespace {

// A clock that is set back by less (as time services do it) leaves tracks as they are: a frame takes no time then.
constexpr std::int64_t kClockBack = 2'000'000'000;

std::string shortest(double value) {
    std::array<char, 40> text{};
    return {text.data(), std::to_chars(text.data(), text.data() + text.size(), value).ptr};
}

/// Takes "NAME=VALUE" and a blank from the front.
template <class Number>
bool take(std::string_view& text, std::string_view name, Number& value) {
    if (!text.starts_with(name) || text.substr(name.size()).empty() || text[name.size()] != '=') return false;
    const char* const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data() + name.size() + 1, last, value);
    if (error != std::errc() || (end != last && *end != ' ')) return false;
    text = {end == last ? end : end + 1, last};
    return true;
}

}  // namespace

std::string settingsText(const TrackSettings& settings) {
    const FilterSettings& filter = settings.filter;
    const auto flag = [](const char* name, bool value) { return std::string(" ") + name + (value ? "=1" : "=0"); };
    return (settings.raw ? "raw" : "filtered") + std::string(" least-area=") + shortest(filter.least_area) +
           flag("shadow-test", filter.shadow_test) + flag("split-people", filter.split_people) +
           flag("infrared", filter.infrared) + " learning=" + std::to_string(settings.learning_frames) +
           " next=" + std::to_string(settings.first_number) + (filter.by_picture ? " by-picture=1" : "");
}

std::optional<TrackSettings> parseSettings(std::string_view text) {
    TrackSettings settings;
    settings.raw = text.starts_with("raw ");
    if (!settings.raw && !text.starts_with("filtered ")) return std::nullopt;
    text.remove_prefix(text.find(' ') + 1);
    int shadow = 0, split = 0, infrared = 0;
    const bool whole = take(text, "least-area", settings.filter.least_area) && take(text, "shadow-test", shadow) &&
                       take(text, "split-people", split) && take(text, "infrared", infrared) &&
                       take(text, "learning", settings.learning_frames) && take(text, "next", settings.first_number);
    int by_picture = 0;
    if (whole && !text.empty() && !take(text, "by-picture", by_picture)) return std::nullopt;
    settings.filter.by_picture = by_picture != 0;
    if (!whole || !text.empty() || !std::isfinite(settings.filter.least_area) || settings.first_number < 1)
        return std::nullopt;
    settings.filter.shadow_test = shadow != 0;
    settings.filter.split_people = split != 0;
    settings.filter.infrared = infrared != 0;
    return settings;
}

TrackMaker::TrackMaker(const TrackSettings& settings) : settings_(settings) {
    if (!settings_.raw) filter_.emplace(settings_.filter, settings_.learning_frames, settings_.first_number);
}

bool TrackMaker::clockWentBack(std::int64_t time_ns) const {
    return last_ns_ && time_ns < *last_ns_ - kClockBack;
}

TrackFrame TrackMaker::frame(const FilterInput& input, FilterView* view) {
    last_ns_ = input.time_ns;
    return filter_ ? filter_->frame(input, view) : raw_.frame(input);
}

void TrackMaker::glance(FilterView& view) const {
    if (filter_) filter_->glance(view);
}

TrackFrame TrackMaker::end(TrackEnd why) {
    last_ns_.reset();
    return filter_ ? filter_->end(why) : raw_.end(why);
}

void TrackMaker::analyzerRestarted() {
    if (filter_)
        filter_->analyzerRestarted();
    else
        raw_.analyzerRestarted();
}

void TrackMaker::handOver(const TrackSettings& settings, bool new_picture) {
    const bool raw = settings_.raw;
    settings_ = settings;
    settings_.raw = raw;
    if (filter_)
        filter_->handOver(settings.filter, settings.learning_frames, new_picture);
    else
        raw_.analyzerRestarted();
}

TrackSettings TrackMaker::settings() const {
    TrackSettings now = settings_;
    if (filter_) now.first_number = filter_->nextNumber();
    return now;
}

}  // namespace fleifeisa::host
