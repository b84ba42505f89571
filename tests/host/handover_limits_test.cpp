// Hand-overs where something is in their way: no place, no frames, no analyzer; and what asks for one by itself.
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "host/handover_runs.h"

namespace fleifeisa::host {
namespace {

using Places = std::vector<std::unique_ptr<LearnersPlace>>;

Places allPlaces() {
    Places places;
    while (auto place = LearnersPlace::take()) places.push_back(std::move(place));
    return places;
}

TEST_F(Handover, FourAtOnceAndTheFifthWaits) {
    Places places = allPlaces();
    ASSERT_EQ(places.size(), 4u);
    CameraConfig config = camera("walkers?size=96x64&frames=260");
    config.warm_up = 8;
    Witness witness;
    std::atomic<bool> all_taken{true};
    std::jthread others;
    witness.on_taken = [&] { EXPECT_FALSE(all_taken) << "beside four others"; };
    run(config, witness, [&](Camera& one) {
        witness.at[150] = [&one, config]() mutable {
            config.control.color_low = "0.2501";
            one.change(config);
        };
        witness.at[250] = [] { EXPECT_TRUE(LearnersPlace::take()) << "its place is free again"; };
        others = std::jthread([&] {
            // The camera of a file waits with its next frame; then one of the others is done.
            const auto limit = Clock::now() + std::chrono::seconds(60);
            for (std::int64_t still = 0, seen = 0; still < 5 && Clock::now() < limit;) {
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
                const std::int64_t before = std::exchange(seen, one.counts().answered.load());
                still = seen > 150 && seen == before ? still + 1 : 0;
            }
            all_taken = false;
            places.pop_back();
        });
    });
    others.join();
    EXPECT_EQ(witness.frames, 260);
    ASSERT_EQ(witness.taken.size(), 1u);
    EXPECT_EQ(allPlaces().size(), 1u);
}

/// An analyzer that cannot be started, or dies while it learns: the old one goes on answering, and it is tried again.
TEST_F(Handover, AWarmUpThatFailsKeepsTheOldAnalyzer) {
    const std::string program = root_.path() + "/analyzer", broken = root_.path() + "/broken";
    std::ofstream(program) << "#!/bin/sh\nif [ -e " << broken << " ]; then echo >>" << broken << "; exit 3; fi\nexec "
                           << FLEIFEISA_EXE << " \"$@\"\n";
    ASSERT_EQ(::chmod(program.c_str(), 0755), 0);
    CameraConfig config = camera("walkers?size=96x64&frames=400");
    config.analyzer.program = program;
    config.warm_up = 8;
    Witness witness;
    run(config, witness, [&](Camera& one) {
        witness.at[150] = [&one, &broken, config]() mutable {
            std::ofstream(broken) << "";
            config.control.color_low = "0.2501";
            one.change(config);
        };
    });
    EXPECT_GT(std::filesystem::file_size(broken), 0u) << "none was tried";
    EXPECT_EQ(witness.frames, 400);
    EXPECT_TRUE(witness.in_order);
    EXPECT_EQ(witness.learned.back(), 60) << "learned once, at the start";
    EXPECT_TRUE(witness.taken.empty());
    EXPECT_TRUE(std::ranges::none_of(witness.events, [](const CameraEvent& event) {
        return event.kind == EventKind::kAnalyzer;
    })) << "nothing happened to the one that answers";
}

/// Of large pictures the memory of the ring holds too few: better to learn anew than from whoever walks through.
TEST_F(Handover, LargePicturesAreLearnedAnew) {
    CameraConfig config = camera("static?size=800x600&frames=60");
    config.control.bgframes = "10";
    config.warm_up = 8;
    Witness witness;
    run(config, witness, [&](Camera& one) {
        witness.at[40] = [&one, config]() mutable {
            config.control.color_low = "0.2501";
            one.change(config);
        };
    });
    EXPECT_EQ(witness.frames, 60);
    EXPECT_TRUE(witness.taken.empty());
    EXPECT_GT(witness.learned.back(), 40);
}

TEST_F(Handover, ALightThatStaysLeadsToOne) {
    CameraConfig config = camera("stage?act=lamp-then-walk&size=160x120&frames=500&quiet=60");
    config.warm_up = 10;
    Witness witness;
    run(config, witness);
    ASSERT_EQ(witness.taken.size(), 1u);
    EXPECT_EQ(witness.taken[0].why, "light");
    EXPECT_GE(witness.taken[0].after, 60 + 100 + 100) << "frames of the old light were learned";
    EXPECT_EQ(witness.learned.back(), 60);
}

/// A recording that begins its next file where a new analyzer takes over: each file can be replayed alone.
TEST_F(Handover, RecordingsRotateByIt) {
    CameraConfig config = camera("walkers?size=96x64&frames=500");
    config.control.bgframes = "20";
    config.warm_up = 8;
    config.outputs = {{"recording", recording(), {.rotation = {.bytes = 2'000'000}}}};
    Witness witness;
    run(config, witness);
    EXPECT_EQ(witness.frames, 500);
    EXPECT_GE(std::ranges::count(witness.taken, "rotation", &Witness::Taken::why), 3);
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(root_.path())) {
        if (!entry.path().filename().string().starts_with("gate.rec")) continue;
        ++files;
        EXPECT_LT(entry.file_size(), 3'000'000u);
        EXPECT_EQ(replayed(entry.path()), 0) << entry.path();
    }
    EXPECT_GE(files, witness.taken.size() + 1);
}

}  // namespace
}  // namespace fleifeisa::host
