// Changes that are tried beside a camera: they see its frames, and it answers as if they were not there.
#include "camera/trial.h"

#include <csignal>
#include <fstream>
#include <thread>

#include "common/process.h"
#include "host/handover_runs.h"
#include "scenes/scene.h"

namespace fleifeisa::host {
namespace {

class Shown : public Output {
 public:
    void frame(const FrameResult& result) override {
        const std::lock_guard lock(mutex);
        if (result.detection) ++detected;
        for (const Track& track : result.tracks.tracks) most = std::max(most, track.number);
        width = result.width;
    }
    void finish() override {}
    std::mutex mutex;
    std::int64_t detected = 0, most = 0;
    int width = 0;
};

template <typename Condition>
bool eventually(Condition condition) {
    for (int i = 0; i < 30'000; ++i) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

class Trials : public Handover {
 protected:
    Trials() { ::signal(SIGPIPE, SIG_IGN); }  // as the host does: a broken analyzer is told by its pipe
};

TEST_F(Trials, TouchNothingOfTheCamera) {
    CameraConfig config = camera("walkers?size=160x120&frames=500");
    config.outputs = {{"replies", root_.path() + "/alone"}};
    Witness alone, beside;
    run(config, alone);
    config.outputs = {{"replies", root_.path() + "/beside"}};
    CameraConfig changed = config, blind = config;
    changed.control.color_low = "0.6";
    changed.source.width = 80;
    changed.source.height = 60;
    blind.analyzer.program = "/bin/false";
    Shown shown, nothing;
    const auto one = std::make_shared<Trial>(changed, shown), other = std::make_shared<Trial>(blind, nothing);
    run(config, beside, [&](Camera& camera) {
        beside.at[150] = [&] { camera.setTaps({one, other}); };
        beside.at[450] = [&] { camera.setTaps({one}); };
    });
    EXPECT_EQ(beside.hashes, alone.hashes);
    const auto bytes = [this](const char* name) {
        std::ifstream file(root_.path() + '/' + name, std::ios::binary);
        return std::string{std::istreambuf_iterator<char>(file), {}};
    };
    EXPECT_GT(bytes("alone").size(), 10'000u);
    EXPECT_EQ(bytes("beside"), bytes("alone"));
    // It has learned from what was kept, and goes on with the latest frames; the broken one has said why it is none.
    ASSERT_TRUE(eventually([&] { return one->state().frames > 0; }));
    const TrialState state = one->state();
    EXPECT_EQ(state.learning, 20);
    EXPECT_EQ(state.learned, 20);
    EXPECT_EQ(state.width, 80);
    EXPECT_EQ(state.trouble, "");
    EXPECT_EQ(shown.width, 80);
    EXPECT_GE(state.frames, 1);
    EXPECT_TRUE(eventually([&] { return !other->state().trouble.empty(); }));
}

/// Frame by frame, each waited for: what a camera keeps of a street on which somebody walks.
TEST_F(Trials, ShowWhatTheChangeDoes) {
    constexpr std::size_t kLearning = 20, kFrames = 150;
    scenes::Scene scene(scenes::parseScene("walkers?size=160x120&quiet=20"));
    std::vector<std::shared_ptr<const KeptFrame>> frames;
    for (std::size_t i = 0; i < kLearning + kFrames; ++i) {
        const auto kept = std::make_shared<KeptFrame>();
        kept->time_ns =
            static_cast<std::int64_t>(i < kLearning ? i : kLearning + (i - kLearning) / 10) * 1'000'000'000 +
            static_cast<std::int64_t>(i < kLearning ? 0 : (i - kLearning) % 10) * 100'000'000;
        kept->width = kept->layout.width = 160;
        kept->height = kept->layout.height = 120;
        kept->bytes.resize(std::size_t{160} * 120 * 3);
        scene.render(static_cast<std::int64_t>(i), kept->bytes);
        frames.push_back(kept);
    }
    const auto tried = [&](const std::function<void(CameraConfig&)>& change) {
        CameraConfig config = camera("walkers");
        change(config);
        Shown shown;
        Trial trial(config, shown);
        trial.begin({frames.begin(), frames.begin() + kLearning / 2}, kLearning);  // the others come with time
        for (std::size_t i = kLearning / 2; i < frames.size(); ++i) {
            const TrialState before = trial.state();
            trial.add(frames[i], {});
            EXPECT_TRUE(eventually([&] {
                const TrialState now = trial.state();
                return i < kLearning ? now.learned == static_cast<int>(i) + 1
                                     : now.frames > before.frames || config.source.rate > 0;
            }));
        }
        return trial.state();
    };
    const TrialState same = tried([](CameraConfig&) {});
    EXPECT_EQ(same.frames, static_cast<std::int64_t>(kFrames));
    EXPECT_EQ(same.left_out, 0);
    EXPECT_GT(same.tracks, 0);
    EXPECT_NEAR(same.seconds, 9.9, 0.01);  // five seconds to settle
    EXPECT_GT(same.cpu_seconds, 0);
    EXPECT_EQ(tried([](CameraConfig& c) { c.source.masks = {{{0, 0}, {1, 0}, {1, 1}, {0, 1}}}; }).tracks, 0);
    EXPECT_EQ(tried([](CameraConfig& c) { c.filter.least_area = 0.9; }).tracks, 0);
    const TrialState slower = tried([](CameraConfig& c) { c.source.rate = 2; });
    EXPECT_LE(slower.frames, 31);
}

TEST(ProcessorSeconds, RiseWithWork) {
    const double before = processorSeconds(::getpid());
    volatile std::uint64_t sum = 0;
    EXPECT_TRUE(eventually([&] {
        for (int i = 0; i < 5'000'000; ++i) sum = sum + static_cast<std::uint64_t>(i);
        return processorSeconds(::getpid()) > before;
    }));
    EXPECT_EQ(processorSeconds(0), 0);
}

}  // namespace
}  // namespace fleifeisa::host
