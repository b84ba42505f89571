// The store: what was told is there, whatever happens to disk and host.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>

#include "hooks/hook_runner.h"
#include "store/media_files.h"
#include "store/reader.h"
#include "store/schema.h"
#include "store/store.h"
#include "web/event_queries.h"

namespace {

/// The disk of these tests: it can stall, and refuse.
struct Disk {
    std::mutex mutex;
    std::condition_variable changed;
    bool stalled = false;
    int waiting = 0, refusals = 0;

    int sync() {
        std::unique_lock lock(mutex);
        ++waiting;
        changed.notify_all();
        changed.wait(lock, [this] { return !stalled; });
        --waiting;
        if (refusals == 0) return 0;
        --refusals;
        errno = EIO;
        return -1;
    }
    void stall(bool on) {
        const std::lock_guard lock(mutex);
        stalled = on;
        changed.notify_all();
    }
    void waitUntilWaitedFor() {
        std::unique_lock lock(mutex);
        changed.wait(lock, [this] { return waiting > 0; });
    }
} disk;

}  // namespace

// In the place of the C library's, also for SQLite.
extern "C" int fsync(int) {
    return disk.sync();
}
extern "C" int fdatasync(int) {
    return disk.sync();
}

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;
constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::int64_t kDay = 86400 * kSecond;

class StoreTest : public testing::Test {
 protected:
    StoreTest() {
        std::string path = (fs::temp_directory_path() / "store-XXXXXX").string();
        directory = ::mkdtemp(path.data());
    }
    ~StoreTest() override { fs::remove_all(directory); }

    StoreOptions options(std::size_t most = 10'000) const {
        StoreOptions options;
        options.directory = directory;
        options.most_events = most;
        options.now = [] { return kDay; };
        options.retention.min_free = 0;
        return options;
    }
    Store::Tell tell() {
        return [this](const StoredEvent& stored) {
            const std::lock_guard lock(mutex);
            all_told.push_back(std::to_string(stored.event.number) + ' ' + nameOf(stored.event.state));
        };
    }
    std::vector<std::string> told() {
        const std::lock_guard lock(mutex);
        return all_told;
    }
    std::vector<StoredEvent> stored(const EventFilter& filter = {}) const {
        std::vector<StoredEvent> all;
        StoreReader(directory).events(filter, [&all](const StoredEvent& event) { all.push_back(event); });
        return all;
    }
    static CameraEvent event(std::int64_t number, EventState state, std::string change = "enter") {
        CameraEvent event;
        event.camera = "gate";
        event.number = number;
        event.kind = EventKind::kZone;
        event.rule = "yard";
        event.change = std::move(change);
        event.state = state;
        event.track = 7;
        event.start_ns = event.time_ns = number * kSecond;
        event.width = 320;
        event.height = 240;
        event.box = Box{-1, 2, 3, 4};
        event.objects = {3, 1};
        if (state == EventState::kEnd) event.end_ns = event.time_ns + 1;
        return event;
    }

    std::string directory;
    std::mutex mutex;
    std::vector<std::string> all_told;
};
constexpr auto kStart = EventState::kStart, kUpdate = EventState::kUpdate, kEnd = EventState::kEnd;

TEST_F(StoreTest, WhatIsHandedInComesBack) {
    CameraEvent full = event(1, kStart);
    full.value = 2.5;
    full.visit = 9;
    full.text = "a 'b'";
    full.parameters = "8f1ee629";
    const PastTrack track{7, 3, TrackEnd::kLeft, 1, 2, {{1, {0.5, 0.25}, 0.125, 0.25}, {2, {1, -0.5}, 0, 0}}};
    {
        Store store(options(), tell());
        EXPECT_EQ(store.addCamera("gate", "Tor", "gate.mp4"), (NextNumbers{1, 1}));
        EXPECT_EQ(store.addCamera("yard", "", ""), (NextNumbers{1, 1}));
        store.parameters("8f1ee629", "all of it", 1);
        store.event(full);
        store.event(event(2, kStart));
        store.event(event(2, kUpdate, "dwell"));
        store.event(event(2, kEnd, "leave"));
        CameraEvent held = event(3, kStart);
        held.held = true;
        store.event(held);
        store.event(event(4, kStart));  // still runs when the host ends
        store.track("gate", {track, 57, 360.5, 320, 240, true, 0.007});
        for (const bool forward : {true, true, false}) store.crossing("gate", {"line", forward, kHourNs + 5});
        store.crossing("gate", {"line", true, 2 * kHourNs});
        store.scene("gate", {4, SceneState::kBlind});
        ActivityMinute minute{1435, 0.25, {}};
        minute.grid[255] = 200;
        store.minute("gate", minute);
        store.nearMiss("gate", {"yard", "least_size", 0.25, 0.3, 7, kDay});
        store.numbers("gate", {9, 5});
        ASSERT_TRUE(store.settle(30));
        EXPECT_EQ(told(), (std::vector<std::string>{"1 start", "2 start", "2 update", "2 end", "4 start"}));
        EXPECT_THROW(Store(options(), nullptr), StoreError);  // one host a directory

        StoreReader reader(directory);  // beside it
        EXPECT_TRUE(reader.check().empty());
        const std::vector<StoredEvent> events = stored();
        ASSERT_EQ(events.size(), 4u);
        EXPECT_EQ(events[0].event, full);
        EXPECT_EQ(events[1].changes, "enter,dwell,leave");
        EXPECT_TRUE(events[2].event.held);
        const std::vector<PastTrack> tracks = reader.tracks("gate", 0);
        ASSERT_EQ(tracks.size(), 1u);
        EXPECT_EQ(std::tie(tracks[0].number, tracks[0].split_from, tracks[0].ended),
                  std::tie(track.number, track.split_from, track.ended));
        EXPECT_EQ(encodePath(tracks[0].path), encodePath(track.path));
        const auto counts = reader.counts("gate");
        EXPECT_EQ(counts.at({"line", 1}).forward * 10 + counts.at({"line", 1}).backward, 21);
        EXPECT_EQ(counts.at({"line", 2}).forward, 1);
        EXPECT_EQ(reader.scenes("gate", 100).at(0).state, SceneState::kBlind);  // which it was then
        EXPECT_EQ(reader.minutes("gate", 0).at(0).grid[255], 200);
        EXPECT_EQ(reader.nearMisses("gate").at(0).limit, 0.3);
        EXPECT_EQ(reader.parameters("8f1ee629"), "all of it");
        EXPECT_THROW(reader.tracks("nobody", 0), StoreError);
    }
    all_told.clear();
    Store store(options(), tell());
    EXPECT_EQ(store.addCamera("gate", "Tor", ""), (NextNumbers{9, 5}));
    ASSERT_TRUE(store.settle(30));
    EXPECT_EQ(told(), (std::vector<std::string>{"1 end", "4 end"}));
    EXPECT_EQ(stored({"gate", "yard", EventKind::kZone, 4 * kSecond, 5 * kSecond, 1}).at(0).event.reason, "restart");
    EXPECT_TRUE(stored({"yard", "", {}, 0, 0, 0}).empty());
    EXPECT_EQ(stored({"", "", {}, 0, 0, 2}).at(1).event.number, 4);
}

TEST_F(StoreTest, FilesOfAnEventAreToldKeptAndGoWithIt) {
    const auto file = [this](std::int64_t number, MediaKind kind) {
        StoredMedia media;
        media.kind = kind;
        media.file = mediaFile("gate", number, number * kSecond, kind);
        media.bytes = 3;
        fs::create_directories(fs::path(directory + '/' + media.file).parent_path());
        std::ofstream(directory + '/' + media.file) << "abc";
        return media;
    };
    const auto there = [this](const StoredMedia& media) { return fs::exists(directory + '/' + media.file); };
    std::vector<std::string> attached;
    StoreOptions watched = options();
    std::string deleted;
    watched.deleted = [&deleted](const std::string& camera, std::int64_t number) { deleted = eventId(camera, number); };
    Store store(watched, [&attached](const StoredEvent& stored) {
        attached.push_back(std::string(nameOf(stored.event.state)) + ' ' + std::to_string(stored.pictures) + ' ' +
                           nameOf(stored.clip) + (stored.keep ? " kept" : ""));
    });
    store.addCamera("gate", "", "");
    store.event(event(1, kStart));
    StoredMedia picture = file(1, MediaKind::kPicture), box = file(1, MediaKind::kBox),
                clip = file(1, MediaKind::kClip);
    EXPECT_EQ(box.file, "media/gate/1970-01-01/1-box.jpg");
    EXPECT_TRUE(store.attach("gate", 1, {picture, box}));
    EXPECT_TRUE(store.clip("gate", 1, ClipState::kRecording));
    ASSERT_TRUE(store.settle(30));
    picture.bytes = 4;  // a better one
    store.attach("gate", 1, {picture});
    EXPECT_EQ(store.remove("gate", 1), "gate-1 still runs");
    store.event(event(1, kEnd, "leave"));
    ASSERT_TRUE(store.settle(30));
    store.attach("gate", 1, {clip});
    const StoredMedia late = file(9, MediaKind::kPicture);
    store.attach("gate", 9, {late});  // of an event that is not there
    ASSERT_TRUE(store.settle(30));
    EXPECT_EQ(store.keep("gate", 1, true), "");
    ASSERT_TRUE(store.settle(30));
    EXPECT_EQ(attached, (std::vector<std::string>{"start 0 none", "update 1 recording", "end 1 recording",
                                                  "update 1 recording", "update 1 ready", "update 1 ready kept"}));
    EXPECT_FALSE(there(late));
    StoreReader reader(directory);
    EXPECT_EQ(reader.media("gate", 1), (std::vector<StoredMedia>{picture, box, clip}));
    EXPECT_EQ(store.review("gate", 1, "anna", Verdict::kWrong), "");
    EXPECT_EQ(reader.reviews("gate", 1).at("anna"), Verdict::kWrong);
    EXPECT_EQ(store.keep("gate", 2, true), "there is no event gate-2");
    EXPECT_EQ(store.keep("nobody", 1, true), "there is no camera 'nobody'");
    EXPECT_EQ(store.remove("gate", 1), "");
    EXPECT_EQ(deleted, "gate-1");
    EXPECT_FALSE(there(picture) || there(box) || there(clip));
    EXPECT_TRUE(reader.media("gate", 1).empty() && reader.reviews("gate", 1).empty() && !reader.event("gate", 1));
}

TEST_F(StoreTest, WhileTheDiskStallsTellingWaits) {
    Store store(options(100), tell());
    store.addCamera("gate", "", "");
    store.event(event(1, kStart));
    ASSERT_TRUE(store.settle(30));
    disk.stall(true);
    store.event(event(2, kStart));
    disk.waitUntilWaitedFor();
    for (int i = 3; i < 103; ++i) store.event(event(i, kStart));  // as many as may wait
    store.event(event(3, kUpdate, "dwell"));                      // merged into the start that waits
    store.event(event(3, kEnd, "leave"));
    store.event(event(1, kEnd, "leave"));  // of an event that was told
    store.event(event(103, kStart));       // lost, and what follows of it
    store.event(event(103, kEnd, "leave"));
    EXPECT_EQ(store.takeLost("gate"), 0);  // no room to say so
    EXPECT_EQ(told(), (std::vector<std::string>{"1 start"}));
    EXPECT_EQ(store.counts().lost, 1);
    EXPECT_EQ(store.counts().merged, 2);
    disk.stall(false);
    ASSERT_TRUE(store.settle(30));
    EXPECT_EQ(store.takeLost("gate"), 1);
    EXPECT_EQ(store.takeLost("gate"), 0);
    const std::vector<std::string> all = told();
    ASSERT_EQ(all.size(), 103u);
    EXPECT_EQ(all[2], "3 start");
    EXPECT_EQ(all[102], "1 end");
    const std::vector<StoredEvent> events = stored();
    ASSERT_EQ(events.size(), 102u);
    EXPECT_TRUE(events[2].event.end_ns && events[2].event.change == "leave");
}

TEST_F(StoreTest, WhatTheDiskRefusedIsTriedAgainAndToldOnce) {
    Store store(options(), tell());
    store.addCamera("gate", "", "");
    ASSERT_TRUE(store.settle(30));
    store.event(event(1, kStart));
    store.crossing("gate", {"line", true, 5});
    {
        const std::lock_guard lock(disk.mutex);
        disk.refusals = 1;
    }
    ASSERT_TRUE(store.settle(30));
    EXPECT_EQ(told(), (std::vector<std::string>{"1 start"}));
    EXPECT_EQ(store.counts().failures, 1);
    EXPECT_EQ(StoreReader(directory).counts("gate").at({"line", 0}).forward, 1);
}

TEST_F(StoreTest, NumbersAreNeverUsedAgain) {
    int told[2];
    ASSERT_EQ(::pipe(told), 0);
    const pid_t child = ::fork();
    if (child == 0) {  // a host that is killed
        Store store(options(), [&told](const StoredEvent& stored) {
            if (stored.event.number == 700 && ::write(told[1], "x", 1) == 1) ::pause();
        });
        store.addCamera("gate", "", "");
        store.numbers("gate", {2600, 1});
        store.event(event(700, kStart));
        ::pause();
    }
    char byte = 0;
    ASSERT_EQ(::read(told[0], &byte, 1), 1);
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    ::close(told[0]);
    ::close(told[1]);
    {
        Store store(options(), nullptr);
        const NextNumbers next = store.addCamera("gate", "", "");
        EXPECT_GT(next.event, 700);
        EXPECT_GE(next.track, 2600);
        EXPECT_LE(next.track, 2600 + StateDirectory::kBlock);
    }
    {
        Store store(options(), nullptr);
        store.addCamera("gate", "", "");
        store.track("gate", {{2700, 0, TrackEnd::kLost, 1, 2, {{1, {}, 0, 0}}}, 1, 0, 1, 1, false, 0});
        ASSERT_TRUE(store.settle(30));
    }
    fs::remove(directory + "/numbers");  // the database knows, too
    Store store(options(), nullptr);
    EXPECT_EQ(store.addCamera("gate", "", ""), (NextNumbers{2701, 701}));
}

TEST_F(StoreTest, ActivityIsTheMeanOfItsMinutes) {
    Store store(options(), nullptr);
    store.addCamera("gate", "", "");
    for (const auto& [minute, share] : {std::pair{0, 0.2}, {1, 0.4}, {2, 0.6}, {5, 0.5}}) {
        ActivityMinute one{minute, share, {}};
        one.grid[0] = minute == 1 ? 255 : 0;
        store.minute("gate", one);
    }
    ASSERT_TRUE(store.settle(30));
    const std::string text = EventQueries(directory).activity("gate", 0, 8 * 60 * kSecond, 2, true);
    EXPECT_NE(text.find("\"foreground\":[0.3000000,0.6000000,0.5000000,null]"), std::string::npos)
        << text.substr(0, 200);
    EXPECT_NE(text.find("\"grid\":[0.2500000,0.0000000,"), std::string::npos) << text.substr(0, 200);
}

// Held on for a moment by what a killed host was starting; a host that lives is another thing.
TEST_F(StoreTest, ALockThatOutlivesItsHostIsWaitedFor) {
    const std::string path = directory + "/lock";
    const auto held = [&path](const std::string& owner) {
        std::ofstream(path) << owner << '\n';
        Fd file(::open(path.c_str(), O_RDWR | O_CLOEXEC));
        EXPECT_EQ(::flock(file.get(), LOCK_EX), 0);
        return file;
    };
    {
        const Fd file = held(std::to_string(::getpid()));
        EXPECT_THROW(StateDirectory{directory}, StoreError);
    }
    Fd file = held("999999999");
    std::jthread later([&file] {
        ::usleep(50'000);
        file.reset();
    });
    EXPECT_NO_THROW(StateDirectory{directory});
}

TEST_F(StoreTest, OlderDatabasesComeUpToDateNewerOnesAreRefused) {
    const std::string path = StateDirectory::databasePath(directory);
    for (int version = 1; version < kSchemaVersion; ++version) {
        SCOPED_TRACE(version);
        fs::remove_all(directory);
        fs::create_directory(directory);
        {
            Database old(path, Database::Mode::kReadWrite);
            migrate(old, version);
            old.run("INSERT INTO cameras VALUES(1, 'gate', '', ''); INSERT INTO counts VALUES(1, 'line', 3, 4, 5)");
        }
        EXPECT_THROW(StoreReader{directory}, StoreError);  // readers change nothing
        {
            Store store(options(), nullptr);
            store.addCamera("gate", "", "");
            store.event(event(1, kEnd));
            store.crossing("gate", {"line", true, 3 * kHourNs});
            store.nearMiss("gate", {"yard", "dwell", 1, 2, 7, kDay});
            store.attach("gate", 1, {StoredMedia{}});
            ASSERT_TRUE(store.settle(30));
        }
        EXPECT_EQ(StoreReader(directory).counts("gate").at({"line", 3}).forward, 5);
        EXPECT_EQ(StoreReader(directory).nearMisses("gate").size(), 1u);
        EXPECT_EQ(StoreReader(directory).event("gate", 1)->pictures, 1);
    }
    const auto refused = [this](const std::string& sql, const char* why) {
        Database(StateDirectory::databasePath(directory), Database::Mode::kReadWrite).run(sql);
        try {
            const Store store(options(), nullptr);
            ADD_FAILURE() << why;
        } catch (const StoreError& error) {
            EXPECT_NE(std::string(error.what()).find(why), std::string::npos) << error.what();
        }
    };
    refused("PRAGMA user_version = 99", "newer");
    refused("PRAGMA user_version = 0", "not one of this program");
    EXPECT_NE(filesystemFault(0x6969).find("NFS"), std::string::npos);
    EXPECT_EQ(filesystemFault(0xEF53), "");
}

TEST_F(StoreTest, TheOldestGoes) {
    struct Row {
        const char* name;
        RetentionLimits limits;
        std::int64_t free_bytes;
        const char* expected;  ///< events, tracks, minutes, near misses that are left
    };
    RetentionLimits nothing{0, 0, 0, 0, 0, 0, 0}, days{5, 3, 1, 0, 0, 0, 0}, small{0, 0, 0, 1, 0, 0, 0},
        full{0, 0, 0, 0, 0, 0, 1000};
    const Row rows[] = {
        {"no limit", nothing, 0, "11 10 10 10"},
        {"by age", days, 0, "7 5 3 1"},  // five days, one that is marked, one that runs
        {"by size", small, 0, "2 0 0 0"},
        {"the disk is full: events stay", full, 999, "11 0 0 0"},
        {"the disk has room", full, 1000, "11 10 10 10"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        fs::remove_all(directory);
        fs::create_directory(directory);
        Database database(StateDirectory::databasePath(directory), Database::Mode::kReadWrite);
        migrate(database);
        RecordWriter writer(database);
        for (int day = 0; day < 10; ++day) {
            const std::int64_t time = day * kDay + 1;
            CameraEvent past = event(day + 1, kEnd);
            past.start_ns = time;
            writer.event(1, past);
            writer.track(1, {{day + 1, 0, TrackEnd::kLost, time, time, {{time, {}, 0, 0}}}, 1, 0, 1, 1, false, 0});
            writer.minute(1, {time / (60 * kSecond), 0, {}});
            writer.nearMiss(1, {"yard", "dwell", 1, 2, 7, time});
        }
        writer.event(1, event(100, kStart));  // runs, since the first day
        database.run("UPDATE events SET keep = 1 WHERE id = " + std::to_string(rowOf(1, 1)));
        for (int steps = 0; steps < 20 && prune(database, row.limits, {}, 10 * kDay, row.free_bytes); ++steps) continue;
        std::string left;
        for (const char* table : {"events", "tracks", "minutes", "near_misses"})
            left += (left.empty() ? "" : " ") +
                    std::to_string(database.integer(std::string("SELECT count(*) FROM ") + table));
        EXPECT_EQ(left, row.expected);
    }
}

TEST_F(StoreTest, HooksGetArgumentsNoShell) {
    CameraEvent nasty = event(5, kStart);
    nasty.rule = "{camera}; $(touch x)";
    EXPECT_EQ(hookArguments({"/bin/{kind}", "{event} {rule}", "{none}{", "{track}{change}"}, nasty),
              (std::vector<std::string>{"/bin/{kind}", "gate-5 {camera}; $(touch x)", "{none}{", "7enter"}));
    EXPECT_NE(hookFault({}), "");
    EXPECT_NE(hookFault({"/nonexistent/notify"}), "");

    const std::string out = directory + "/out", fifo = directory + "/fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const auto until = [](HookRunner& runner, const auto& there) {
        for (int i = 0; i < 3000 && !there(runner.counts()); ++i) ::usleep(10'000);
        return there(runner.counts());
    };
    HookSettings settings;
    settings.command = {"sh", "-c", "read line < \"$1\"; echo \"$2\" >> \"$3\"; exit 3", "hook", fifo, "{event}", out};
    settings.most_at_once = 1;
    settings.most_waiting = 2;
    settings.seconds = 60;
    HookRunner runner(settings);
    runner.tell(event(1, kStart));
    ASSERT_TRUE(until(runner, [](const auto& counts) { return counts.started == 1; }));
    runner.tell(event(1, kUpdate));                             // starts only
    for (int i = 2; i < 5; ++i) runner.tell(event(i, kStart));  // the second one has no room
    EXPECT_EQ(runner.counts().left_out, 1);
    for (int i = 0; i < 3; ++i) {
        std::ofstream(fifo) << "go\n" << std::flush;
        ASSERT_TRUE(until(runner, [i](const auto& counts) { return counts.failed == i + 1; }));
    }
    std::stringstream written;
    written << std::ifstream(out).rdbuf();
    EXPECT_EQ(written.str(), "gate-1\ngate-3\ngate-4\n");

    settings.seconds = 0.1;
    HookRunner impatient(settings);
    impatient.tell(event(1, kStart));
    EXPECT_TRUE(until(impatient, [](const auto& counts) { return counts.failed == 1; }));
    impatient.arm(false);
    impatient.tell(event(2, kStart));
    EXPECT_EQ(impatient.counts().started, 1);
    {
        settings.command = {"sh", "-c", "sleep 0.1; echo \"$1\" >> \"$2\"", "hook", "{event}", out};
        settings.seconds = 30;
        HookRunner leaving(settings);
        leaving.graceAtEnd(60);
        leaving.tell(event(5, kStart));
        leaving.tell(event(6, kStart));
    }
    std::stringstream last;
    last << std::ifstream(out).rdbuf();
    EXPECT_EQ(last.str(), written.str() + "gate-5\ngate-6\n");
    runner.tell(event(9, kStart));  // still waits for its line when the runner goes
}

}  // namespace
}  // namespace fleifeisa::host
