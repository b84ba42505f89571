// What the recorder keeps on disk, and what it does where the disk does not take it.
#include "recorder/recorder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;
constexpr std::int64_t kSecond = 1'000'000'000, kBegin = 1'780'000'000 * kSecond;

class RecorderTest : public testing::Test {
 protected:
    RecorderTest() {
        std::string path = (fs::temp_directory_path() / "recorder-XXXXXX").string();
        directory = ::mkdtemp(path.data());
        StoreOptions options;
        options.directory = directory;
        options.retention.min_free = 0;
        store.emplace(options, nullptr);
        store->addCamera("gate", "", "");
    }
    ~RecorderTest() override {
        store.reset();
        fs::remove_all(directory);
    }
    /// Two seconds of video from `start_s` seconds behind the beginning on.
    static Segment segment(std::int64_t run, std::int64_t number, std::int64_t start_s, std::size_t packets = 1) {
        Segment segment;
        segment.head.run = run;
        segment.head.number = number;
        for (int i = 0; i < 2; ++i)
            segment.head.pictures.push_back(
                {i * kTicksPerSecond, i * kTicksPerSecond, kBegin + (start_s + i) * kSecond, 0, i == 0});
        segment.tables.resize(2 * kTsPacket);
        segment.packets.resize(packets * kTsPacket);
        return segment;
    }
    std::vector<RingSegment> onDisk() const {
        Ring ring(directory + "/ring/gate");
        ring.load();
        return {ring.segments().begin(), ring.segments().end()};
    }
    template <class Condition>
    static bool within(Condition&& condition) {
        for (int i = 0; i < 4000 && !condition(); ++i) ::usleep(5'000);
        return condition();
    }

    std::string directory;
    std::optional<Store> store;
};

/// What clips may begin with, and a minute and a half; longer where everything is kept, and where an event needs it.
TEST_F(RecorderTest, KeepsWhatMayBeNeeded) {
    struct Row {
        double before, continuous;
        std::int64_t event_s;  ///< an event that runs began then, 0: none
        std::int64_t oldest_s;
    };
    // The latest picture is 599 seconds behind the beginning; of the oldest segment the last one counts.
    const Row rows[] = {{5, 0, 0, 504}, {60, 0, 0, 448}, {5, 200, 0, 308}, {5, 0, 300, 294}, {5, 0, 590, 504}};
    std::int64_t number = 0;
    for (const Row& row : rows) {
        fs::remove_all(directory + "/ring");
        Recorder recorder(directory, *store);
        ClipSettings settings;
        settings.before = row.before;
        settings.continuous = row.continuous;
        recorder.add("gate", settings, 1'000'000);
        const std::int64_t run = recorder.begin("gate");
        recorder.note("gate", run, kBegin);
        for (std::int64_t i = 0; i < 300; ++i) {
            if (row.event_s == 2 * i && row.event_s > 0) {
                CameraEvent event;
                event.camera = "gate";
                event.number = ++number;
                event.kind = EventKind::kZone;
                event.start_ns = event.time_ns = kBegin + row.event_s * kSecond;
                recorder.event(event);
            }
            recorder.take("gate", segment(run, i, 2 * i));
        }
        ASSERT_TRUE(recorder.settle(60));
        const auto segments = onDisk();
        ASSERT_FALSE(segments.empty());
        EXPECT_EQ((segments.front().start_ns - kBegin) / kSecond, row.oldest_s) << row.before << ' ' << row.event_s;
        EXPECT_EQ(segments.back().start_ns, kBegin + 598 * kSecond);
        EXPECT_EQ(recorder.counts().ring_bytes, static_cast<std::int64_t>(segments.size()) * segments.back().bytes);
        EXPECT_EQ(recorder.counts().segments, 300);
        // The disk is full: all that no clip needs may go, the latest one stays.
        if (row.event_s > 0) continue;
        while (recorder.dropOldest()) continue;
        EXPECT_EQ(onDisk().size(), 1u);
    }
}

/// The next run of the host finds the ring, counts its bytes, and goes on aging it.
TEST_F(RecorderTest, FindsItsRingAgain) {
    for (const std::int64_t begin : {0, 80, 160}) {
        Recorder recorder(directory, *store);
        recorder.add("gate", {}, 1);
        const std::int64_t run = recorder.begin("gate");
        for (std::int64_t i = 0; i < 10; ++i) recorder.take("gate", segment(run, i, begin + 2 * i));
        ASSERT_TRUE(recorder.settle(60));
        EXPECT_EQ(recorder.counts().ring_bytes, static_cast<std::int64_t>(onDisk().size()) * onDisk().back().bytes);
    }
    const auto segments = onDisk();
    EXPECT_EQ(segments.size(), 18u) << "what ended more than 95 seconds before the latest is gone";
    EXPECT_EQ(segments.front().start_ns, kBegin + 84 * kSecond);
    EXPECT_LT(segments.front().run, segments.back().run);
}

/// A disk that takes nothing for a while: so much waits, the rest is dropped whole, counted, and told once a minute.
TEST_F(RecorderTest, WhatADiskDoesNotTakeInTimeIsCounted) {
    Recorder recorder(directory, *store);
    recorder.add("gate", {}, 1);
    const std::int64_t run = recorder.begin("gate");
    constexpr std::size_t kPackets = (8 << 20) / kTsPacket;
    // Opening a pipe waits until somebody reads it.
    RingSegment first{run, 0, kBegin, kBegin + kSecond, 0, true};
    const std::string path = directory + "/ring/gate/" + segmentName(first) + ".part";
    fs::create_directories(fs::path(path).parent_path());
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    for (std::int64_t i = 0; i < 8; ++i) recorder.take("gate", segment(run, i, 2 * i, kPackets));
    std::string why;
    EXPECT_EQ(recorder.takeLost("gate", why), 4) << "beyond 32 MB";
    EXPECT_EQ(why, "the disk was too slow");
    recorder.take("gate", segment(run, 8, 16, kPackets));
    EXPECT_EQ(recorder.takeLost("gate", why), 0) << "once a minute";
    EXPECT_LE(recorder.counts().waiting_bytes, 32 << 20);
    {
        const Fd reader(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
        std::vector<char> buffer(1 << 20);
        while (::read(reader.get(), buffer.data(), buffer.size()) > 0) continue;
    }
    ASSERT_TRUE(recorder.settle(60));
    EXPECT_EQ(recorder.counts().dropped, 5);
    EXPECT_EQ(recorder.counts().segments, 4);
    EXPECT_EQ(recorder.counts().waiting_bytes, 0);
    recorder.take("gate", segment(run, 9, 18, kPackets));
    ASSERT_TRUE(recorder.settle(60));
    EXPECT_EQ(recorder.counts().segments, 5) << "it goes on";
}

}  // namespace
}  // namespace fleifeisa::host
