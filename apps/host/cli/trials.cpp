#include "cli/trials.h"

#include <algorithm>

#include "common/text.h"
#include "http/message.h"

namespace fleifeisa::host {
namespace {

std::string hundredths(double value) {
    constexpr int kDecimals = 3;
    return rounded(value, kDecimals);
}

}  // namespace

int Trials::begin(const std::string& camera, const std::string& change) {
    CameraConfig config = changes_.configWith(camera, change);
    const std::lock_guard lock(mutex_);
    const auto place = std::ranges::find_if(all_, [](const One& one) { return one.trial == nullptr; });
    if (place == all_.end()) throw HttpError(409, "two changes are tried already: end one of them first");
    const int number = static_cast<int>(place - all_.begin()) + 1;
    *place = One{};
    place->trial = std::make_shared<Trial>(std::move(config), live_.camera(liveName(camera, number)));
    place->asked = Clock::now();
    return number;
}

/// mutex_ is held.
Trials::One& Trials::find(const std::string& camera, int number) {
    One& one = all_.at(static_cast<std::size_t>(number - 1));
    if (!one.trial || one.trial->camera() != camera) throw HttpError(404, "there is no such trial (any more)");
    return one;
}

std::string Trials::state(const std::string& camera, int number) {
    const std::lock_guard lock(mutex_);
    One& one = find(camera, number);
    one.asked = Clock::now();
    const TrialState state = one.trial->state();
    const auto share = [](double cpu, double wall) { return wall > 0.5 ? hundredths(cpu / wall) : "null"; };
    return "{\"trial\":" + std::to_string(number) + ",\"pictures\":" + jsonString(liveName(camera, number)) +
           ",\"camera\":" + jsonString(camera) + ",\"learned\":" + std::to_string(state.learned) +
           ",\"learning\":" + std::to_string(state.learning) + ",\"frames\":" + std::to_string(state.frames) +
           ",\"left_out\":" + std::to_string(state.left_out) + ",\"seconds\":" + hundredths(state.seconds) +
           ",\"size\":" +
           (state.width == 0 ? "null" : '[' + std::to_string(state.width) + ',' + std::to_string(state.height) + ']') +
           ",\"tracks\":" + std::to_string(state.tracks) + ",\"cpu\":" + share(state.cpu_seconds, state.wall_seconds) +
           ",\"live_tracks\":" + std::to_string(state.live_tracks) +
           ",\"live_cpu\":" + share(one.live_cpu, one.live_wall) + ",\"trouble\":" + jsonString(state.trouble) + '}';
}

/// mutex_ is held.
void Trials::retire(One& one, std::vector<std::shared_ptr<Trial>>& ending) {
    one.trial->stop();
    ending.push_back(std::move(one.trial));
    one = One{};
}

void Trials::end(const std::string& camera, int number) {
    const std::lock_guard lock(mutex_);
    retire(find(camera, number), ending_);
    left_.push_back(camera);
}

bool Trials::runs(const std::string& live_name) {
    const std::lock_guard lock(mutex_);
    for (int i = 0; i < kMost; ++i) {
        const One& one = all_.at(static_cast<std::size_t>(i));
        if (one.trial && liveName(one.trial->camera(), i + 1) == live_name) return true;
    }
    return false;
}

/// mutex_ is held.
void Trials::measure(One& one, const Camera& camera) {
    const Clock::time_point now = Clock::now();
    const double cpu = camera.cpuSeconds();
    if (!one.trial->state().settled) return;
    // A new analyzer begins at nought: that moment is left out.
    if (one.cpu_before >= 0 && cpu >= one.cpu_before) {
        one.live_cpu += cpu - one.cpu_before;
        one.live_wall += Seconds(now - one.measured).count();
    }
    one.cpu_before = cpu;
    one.measured = now;
}

void Trials::tick(const std::function<Camera*(const std::string&)>& running) {
    std::vector<std::shared_ptr<Trial>> gone;  // destroyed without the lock
    {
        const std::lock_guard lock(mutex_);
        for (One& one : all_)
            if (one.trial && Seconds(Clock::now() - one.asked).count() > kUnaskedSeconds) {
                left_.push_back(one.trial->camera());
                retire(one, ending_);
            }
        std::vector<std::string> changed = std::exchange(left_, {});
        for (One& one : all_) {
            if (!one.trial) continue;
            Camera* const camera = running(one.trial->camera());
            if (camera && camera != one.attached) changed.push_back(one.trial->camera());
            one.attached = camera;
            if (camera) measure(one, *camera);
        }
        for (const std::string& name : changed) {
            Camera* const camera = running(name);
            if (!camera) continue;
            std::vector<std::shared_ptr<FrameTap>> taps;
            for (const One& one : all_)
                if (one.trial && one.trial->camera() == name) taps.push_back(one.trial);
            camera->setTaps(std::move(taps));
        }
        const auto alone = std::partition(ending_.begin(), ending_.end(),
                                          [](const std::shared_ptr<Trial>& trial) { return trial.use_count() > 1; });
        gone.assign(std::make_move_iterator(alone), std::make_move_iterator(ending_.end()));
        ending_.erase(alone, ending_.end());
    }
}

}  // namespace fleifeisa::host
