#include "tracks/track_filter.h"

#include <algorithm>

#include "tracks/constants.h"
#include "tracks/filter_view.h"
#include "tracks/refiner.h"
#include "tracks/scene_state.h"
#include "tracks/stopped.h"
#include "tracks/tracker.h"

namespace fleifeisa::host {

struct TrackFilter::State {
    FilterSettings settings;
    int learning_frames = 0;
    std::int64_t first_number = 1;
    int width = 0, height = 0;
    std::int64_t time_ns = 0;
    double seconds = 0;  // between the latest two frames
    bool begun = false;  // a frame of this size has come
    SmoothFrame frame;
    Background background;
    Refiner refiner;
    Tracker tracker;
    StoppedPlaces places;
    SceneWatch scene;
    std::vector<Track> told;

    void resize(const FilterInput& input);
    SceneState step(const FilterInput& input, FilterView* view);
    void copyBackground(std::vector<std::uint8_t>& rgb) const;
    void support(const FilterInput& input);
};

TrackFilter::TrackFilter(const FilterSettings& settings, int learning_frames, std::int64_t first_number)
    : state_(std::make_unique<State>()) {
    state_->settings = settings;
    state_->learning_frames = std::max(0, learning_frames);
    state_->tracker.reset(0, 0, settings.least_area, first_number);
}

TrackFilter::~TrackFilter() = default;

void TrackFilter::State::resize(const FilterInput& input) {
    tracker.endAll(TrackEnd::kSource, told);
    width = input.width;
    height = input.height;
    const std::int64_t next = tracker.nextNumber();
    tracker.reset(width, height, settings.least_area, next);
    background.reset(width, height, settings.infrared ? 1 : kChannels);
    refiner.reset(width, height);
    places.reset();
    scene.reset();
    begun = false;
}

namespace {

bool validInput(const FilterInput& input) {
    return input.width > 0 && input.height > 0 &&
           input.rgb.size() >=
               static_cast<std::size_t>(input.width) * static_cast<std::size_t>(input.height) * kChannels;
}

}  // namespace

TrackFrame TrackFilter::frame(const FilterInput& input, FilterView* view) {
    State& s = *state_;
    s.told.clear();
    if (view) *view = {};
    TrackFrame result;
    result.time_ns = input.time_ns;
    result.width = input.width;
    result.height = input.height;
    if (validInput(input)) {
        if (input.width != s.width || input.height != s.height) s.resize(input);
        result.scene = s.step(input, view);
        result.foreground = s.refiner.foreground();
        if (view) glance(*view);
    }
    result.tracks = s.told;
    return result;
}

void TrackFilter::glance(FilterView& view) const {
    const State& s = *state_;
    view.width = s.width;
    view.height = s.height;
    view.seconds = s.seconds;
    view.least_pixels = s.settings.least_area * s.width * s.height;
    view.movers = s.tracker.movers();
}

SceneState TrackFilter::State::step(const FilterInput& input, FilterView* view) {
    frame.begin(input.rgb, width, height, settings.infrared ? 1 : kChannels);
    // Times rise; should they not, a millisecond passes.
    seconds = begun ? std::clamp(static_cast<double>(input.time_ns - time_ns) / 1e9, 0.001, 10.0) : 0.001;
    time_ns = input.time_ns;
    begun = true;
    if (!background.ready()) {
        if (!input.detection) {
            background.learn(frame, learning_frames);
            return SceneState::kLearning;
        }
        background.start(frame);
    }
    const SceneState state = scene.update(frame, background, input.objects, seconds, settings.by_picture);
    if (state != SceneState::kWatching || scene.empty()) {
        tracker.tell(told);  // frozen as they are
        return state;
    }
    if (view) copyBackground(view->background);
    tracker.predict(seconds);
    const auto blobs = refiner.find(frame, background, input.objects, tracker.movers(), settings, seconds, view);
    tracker.update(blobs, time_ns, seconds);
    places.update(tracker.movers(), frame, background, seconds);
    support(input);
    refiner.follow(frame, background, tracker.movers(), time_ns);
    tracker.tell(told);
    return input.detection ? state : SceneState::kLearning;
}

void TrackFilter::State::copyBackground(std::vector<std::uint8_t>& rgb) const {
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < kChannels; ++c)
                rgb.push_back(static_cast<std::uint8_t>(background.level(settings.infrared ? 0 : c, x, y)));
}

/// Which of the analyzer's objects lie in which track: half of the smaller one of the two boxes is common.
void TrackFilter::State::support(const FilterInput& input) {
    for (Mover& mover : tracker.movers()) {
        mover.track.objects.clear();
        if (input.detection) mover.unsupported += seconds;  // an analyzer that learns anew supports nobody
        const Box box = mover.box();
        for (const AnalyzerObject& object : input.objects) {
            const Box other = clipped({object.left, object.top, object.width, object.height}, width, height);
            const std::int64_t common = commonArea(box, other);
            if (common == 0) continue;
            if (10 * common >= areaOf(box) || 2 * common >= areaOf(other)) mover.unsupported = 0;
            if (mover.blob >= 0 && 2 * common >= std::min(areaOf(box), areaOf(other)))
                mover.track.objects.push_back(object.id);
        }
    }
}

TrackFrame TrackFilter::end(TrackEnd why) {
    State& s = *state_;
    s.told.clear();
    s.tracker.endAll(why, s.told);
    s.places.reset();
    TrackFrame result;
    result.time_ns = s.time_ns;
    result.width = s.width;
    result.height = s.height;
    result.scene = s.background.ready() ? SceneState::kWatching : SceneState::kLearning;
    result.tracks = s.told;
    return result;
}

void TrackFilter::analyzerRestarted() {
    for (Mover& mover : state_->tracker.movers()) mover.track.objects.clear();
}

void TrackFilter::handOver(const FilterSettings& settings, int learning_frames, bool new_picture) {
    State& s = *state_;
    analyzerRestarted();
    const bool channels = settings.infrared != s.settings.infrared;
    s.settings = settings;
    s.learning_frames = std::max(0, learning_frames);
    s.tracker.setLeastArea(settings.least_area);
    if (!new_picture && !channels) return;
    s.background.reset(s.width, s.height, settings.infrared ? 1 : kChannels);
    s.refiner.reset(s.width, s.height);
    s.scene.reset();
}

void TrackFilter::warmUp(const FilterInput& input) {
    State& s = *state_;
    s.told.clear();
    if (!validInput(input)) return;
    if (input.width != s.width || input.height != s.height) s.resize(input);
    if (s.background.ready() || input.detection) return;
    s.frame.begin(input.rgb, s.width, s.height, s.settings.infrared ? 1 : kChannels);
    s.background.learn(s.frame, s.learning_frames);
}

std::int64_t TrackFilter::nextNumber() const {
    return state_->tracker.nextNumber();
}

}  // namespace fleifeisa::host
