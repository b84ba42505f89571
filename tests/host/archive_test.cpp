// Archives: which clips are meant, what a result depends on, and the pool of child processes.
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "archive/clip_pool.h"
#include "archive/cutting.h"
#include "archive/slurm.h"
#include "archive/verify.h"
#include "cli/clip_list.h"
#include "common/text.h"

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;

class Folder {
 public:
    Folder() : path_((fs::temp_directory_path() / "archive-test-XXXXXX").string()) {
        EXPECT_NE(::mkdtemp(path_.data()), nullptr);
    }
    ~Folder() { fs::remove_all(path_); }
    std::string operator/(const std::string& below) const { return path_ + '/' + below; }
    void write(const std::string& below, const std::string& text) const {
        fs::create_directories(fs::path(*this / below).parent_path());
        std::ofstream(*this / below) << text;
    }

 private:
    std::string path_;
};

ClipConfigs configsOf(const std::string& text) {
    std::vector<std::string> errors;
    ClipConfigs configs = parseClipConfigs(text, "/nowhere/batch.toml", errors);
    EXPECT_EQ(errors, std::vector<std::string>());
    return configs;
}

TEST(ClipList, WhoseAndWhen) {
    const Folder folder;
    for (const char* file : {"gate/2026-03-01/gate_20260301_120000.mp4", "gate/.trash/old.mp4", "gate/notes.txt",
                             "other/yard-1.MKV", "other/yardstick.mkv", "lone/x.avi"})
        folder.write(file, "x");
    folder.write(
        "list.csv",
        "\xEF\xBB\xBFstart,file,camera\r\n2026-03-01T08:00:00Z,\"gate/2026-03-01/gate_20260301_120000.mp4\",lobby\n"
        ",scene:street?seed=4,\n\n,lone/x.avi,\n");
    const std::string known =
        "clip_times='%Y%m%d_%H%M%S'\ntimezone='Europe/Berlin'\n[[camera]]\nname='gate'\n"
        "[[camera]]\nname='yard'\n[[camera]]\nname='lobby'\n";
    const std::string any = known + "[[camera]]\nname='default'\n";
    const struct {
        std::string config;
        std::vector<std::string> arguments;
        std::string expected;  // camera, file, start; or the fault
    } rows[] = {
        {any, {"gate"}, "gate gate_20260301_120000.mp4 2026-03-01T11:00:00;"},
        {any,
         {"gate", "gate/2026-03-01/gate_20260301_120000.mp4"},
         "gate gate_20260301_120000.mp4 2026-03-01T11:00:00;"},
        {any, {"other"}, "other yardstick.mkv -;yard yard-1.MKV -;"},
        {any,
         {"list.csv"},
         "lobby gate_20260301_120000.mp4 2026-03-01T08:00:00;lone x.avi -;street scene:street?seed=4 -;"},
        {known, {"lone/x.avi"}, "fault: camera 'lone' stands in"},
        {"", {"lone/x.avi"}, "lone x.avi -;"},
        {"[[camera]]\nname='gate'\n", {"lone/x.avi"}, "gate x.avi -;"},
        {any, {"lone/y.avi"}, "fault: No such file"},
        {any, {"scene:nowhere"}, "fault: "},
    };
    for (const auto& row : rows) {
        std::vector<std::string> arguments, errors;
        for (const std::string& argument : row.arguments)
            arguments.push_back(argument.starts_with("scene:") ? argument : folder / argument);
        std::string found;
        for (const Clip& clip : listClips(arguments, configsOf(row.config), errors))
            found += clip.camera + ' ' +
                     (clip.file.starts_with("scene:") ? clip.file : fs::path(clip.file).filename().string()) + ' ' +
                     (clip.start_time_ns ? rfc3339(*clip.start_time_ns).substr(0, 19) : "-") + ';';
        for (const std::string& error : errors) found += "fault: " + error.substr(error.find(": ") + 2);
        EXPECT_EQ(found.substr(0, row.expected.size()), row.expected) << row.arguments[0];
        if (!row.expected.starts_with("fault")) {
            EXPECT_EQ(found, row.expected);
        }
    }
}

TEST(ClipList, MomentsInNames) {
    const struct {
        const char *name, *pattern, *zone, *expected;
    } rows[] = {
        {"a-2026-03-01T08-15.mkv", "%Y-%m-%dT%H-%M", "UTC", "2026-03-01T08:15:00"},
        {"12_20260301081530_x.mp4", "%Y%m%d%H%M%S", "UTC", "2026-03-01T08:15:30"},
        {"100%20260301-0815", "%%%Y%m%d-%H%M", "UTC", "2026-03-01T08:15:00"},
        {"20261325_081500 20261225_081500", "%Y%m%d_%H%M%S", "UTC", "2026-12-25T08:15:00"},
        {"20260230_081500", "%Y%m%d_%H%M%S", "UTC", ""},
        {"20260301_0815", "%Y%m%d_%H%M%S", "UTC", ""},
        {"20260329_0130", "%Y%m%d_%H%M", "Europe/Berlin", "2026-03-29T00:30:00"},
        {"20260329_0230", "%Y%m%d_%H%M", "Europe/Berlin", "2026-03-29T01:30:00"},  // skipped
        {"20260329_0330", "%Y%m%d_%H%M", "Europe/Berlin", "2026-03-29T01:30:00"},
        {"20261025_0230", "%Y%m%d_%H%M", "Europe/Berlin", "2026-10-25T00:30:00"},  // comes twice
        {"20261025_0330", "%Y%m%d_%H%M", "Europe/Berlin", "2026-10-25T02:30:00"},
    };
    for (const auto& row : rows) {
        const auto found = momentInName(row.name, row.pattern, row.zone);
        EXPECT_EQ(found ? rfc3339(*found).substr(0, 19) : "", row.expected) << row.name;
    }
}

/// The name of a clip's result with this configuration of camera "gate".
std::string nameWith(const std::string& config, Clip clip = {"gate", "/a/b.mp4", std::nullopt, 7, 8, {}},
                     const char* version = "1") {
    const std::string text =
        config.find("[[camera]]") == std::string::npos ? "[[camera]]\nname='gate'\n" + config : config;
    return clipRun(clip, *configsOf(text).find("gate"), version).name;
}

TEST(ClipRun, ItsNameFollowsWhatMatters) {
    const std::string plain = nameWith("profile='traffic'\nsize='320x240'");
    const struct {
        const char* what;
        std::string name;
        bool same;
    } rows[] = {
        {"order, comments", nameWith("# wide\nsize = \"320x240\"\nprofile='traffic'"), true},
        {"title", nameWith("title='Tor'\nprofile='traffic'\nsize='320x240'"), true},
        {"source, live", nameWith("source='/dev/video0'\nlive=true\nprofile='traffic'\nsize='320x240'"), true},
        {"another camera",
         nameWith("[[camera]]\nname='gate'\nprofile='traffic'\nsize='320x240'\n[[camera]]\nname='yard'\n"), true},
        {"pictures", nameWith("profile='traffic'\nsize='320x240'\nkeep={pictures=false}"), false},
        {"clips are kept longer", nameWith("profile='traffic'\nsize='320x240'\nkeep={clip_days=3}"), true},
        {"size", nameWith("profile='traffic'\nsize='320x244'"), false},
        {"a zone", nameWith("profile='traffic'\nsize='320x240'\n[[camera.zone]]\nname='z'\npoints=[[0,0],[1,0],[1,1]]"),
         false},
        {"time zone", nameWith("timezone='Asia/Tokyo'\n[[camera]]\nname='gate'\nprofile='traffic'\nsize='320x240'"),
         false},
        {"version", nameWith("profile='traffic'\nsize='320x240'", {"gate", "/a/b.mp4", std::nullopt, 7, 8, {}}, "2"),
         false},
        {"file", nameWith("profile='traffic'\nsize='320x240'", {"gate", "/a/c.mp4", std::nullopt, 7, 8, {}}), false},
        {"changed file", nameWith("profile='traffic'\nsize='320x240'", {"gate", "/a/b.mp4", std::nullopt, 7, 9, {}}),
         false},
        {"start", nameWith("profile='traffic'\nsize='320x240'", {"gate", "/a/b.mp4", 5, 7, 8, {}}), false},
        {"part",
         nameWith("profile='traffic'\nsize='320x240'", {"gate", "/a/b.mp4", std::nullopt, 7, 8, {1, 2, 3, 4, 5}}),
         false},
    };
    for (const auto& row : rows) EXPECT_EQ(row.name == plain, row.same) << row.what;
    EXPECT_TRUE(plain.starts_with("gate.b.")) << plain;
}

TEST(ClipRun, RecordsAreReadAsTheyWereWritten) {
    Clip clip{"gate", "/a/\"b\".mp4", -5, 7, 8, {1, 2, 3, 4, 5}};
    const ClipRun run{"n", clip, "x = 'y'\n"};
    EXPECT_EQ(fromJson<ClipRun>(toJson(run)).clip, clip);
    EXPECT_EQ(fromJson<ClipRun>(toJson(run)).configuration, run.configuration);
    const ClipSummary summary{"n", clip, "torn", 9, 8, 320, 240, -1, 7, 6, 5, "a", "b", "c", "d"};
    EXPECT_EQ(fromJson<ClipSummary>(toJson(summary)), summary);
    EXPECT_THROW(fromJson<ClipSummary>("{}"), std::runtime_error);
}

TEST(Cutting, PartsCoverTheClipOnce) {
    const struct {
        std::int64_t duration, length;
        std::vector<std::pair<std::int64_t, std::int64_t>> parts;  // from, to; seconds
    } rows[] = {
        {100, 0, {{0, 0}}},
        {0, 60, {{0, 0}}},
        {89, 60, {{0, 0}}},
        {90, 60, {{0, 60}, {60, 0}}},
        {149, 60, {{0, 60}, {60, 0}}},
        {150, 60, {{0, 60}, {60, 120}, {120, 0}}},
    };
    constexpr std::int64_t kSecond = 1'000'000'000;
    for (const auto& row : rows) {
        std::vector<std::pair<std::int64_t, std::int64_t>> parts;
        const CutSettings settings{row.length * kSecond, 7, 9};
        double weight = 0;
        for (const Clip& clip : partsOf({"gate", "/a", 5, 3000, 8, {}}, row.duration * kSecond, settings)) {
            parts.emplace_back(clip.part.from_ns / kSecond, clip.part.to_ns / kSecond);
            weight += clip.weight();
        }
        EXPECT_EQ(parts, row.parts) << row.duration;
        EXPECT_DOUBLE_EQ(weight, 3000);
    }
}

TEST(Slurm, TasksAreOfEqualLengthAndNotTooMany) {
    const struct {
        std::vector<std::uint64_t> bytes;
        std::size_t most;
        std::vector<std::size_t> sizes;  // of chunks
        std::int64_t memory_mb, minutes;
    } rows[] = {
        {{10, 10, 10, 10, 10}, 1000, {3, 2}, 448, 35},  // 100 s each, 300 s a task
        {{100, 1, 1}, 1000, {1, 2}, 448, 82},           // longer than a task should be
        {{30, 30, 30, 30, 30, 30}, 2, {6}, 448, 135},   // the array may not have more: twice the share of one task
        {{30, 30, 30, 30, 30, 30}, 1000, {1, 1, 1, 1, 1, 1}, 448, 35},
    };
    for (const auto& row : rows) {
        std::vector<ClipRun> runs;
        for (const std::uint64_t bytes : row.bytes)
            runs.push_back({std::to_string(runs.size()), {"gate", "/a", 5, bytes, 8, {}}, ""});
        std::vector<const ClipRun*> pointers;
        for (const ClipRun& run : runs) pointers.push_back(&run);
        const ArrayShape shape = shapeOf(pointers, {10, 100 << 20}, row.most);
        std::vector<std::size_t> sizes;
        std::size_t next = 0;
        for (const auto& chunk : shape.chunks) {
            sizes.push_back(chunk.size());
            for (const std::string& name : chunk) EXPECT_EQ(name, std::to_string(next++));
        }
        EXPECT_EQ(sizes, row.sizes);
        EXPECT_EQ(std::pair(shape.memory_mb, shape.minutes), std::pair(row.memory_mb, row.minutes));
    }
}

TEST(Verify, TheOddOneIsNamedAndNobodyElse) {
    const struct {
        std::vector<Witness> witnesses;
        bool agrees;
        std::vector<std::string> wrong;
        std::string differences;
    } rows[] = {
        {{{"a", "1 2 3 4"}, {"b", "1 2 3 4"}}, true, {}, ""},
        {{{"a", "1 2 3 4"}, {"b", "1 9 3 4"}}, false, {}, "replies"},
        {{{"a", "1 2 3 4"}, {"b", "1 9 9 4"}, {"c", "1 2 3 4"}}, false, {"b"}, "replies, tracks"},
        {{{"a", "8 2 3 4"}, {"b", "1 2 3 4"}, {"c", "1 2 3 4"}}, false, {"a"}, "frames"},
        {{{"a", "1 2 3 7"}, {"b", "1 2 3 8"}, {"c", "1 2 3 9"}}, false, {}, "events"},
    };
    for (const auto& row : rows) {
        const VerifiedClip clip{nullptr, row.witnesses, ""};
        EXPECT_EQ(clip.agrees(), row.agrees);
        EXPECT_EQ(clip.wrongNodes(), row.wrong);
        EXPECT_EQ(clip.differences(), row.differences);
    }
}

class PoolTest : public testing::Test {
 protected:
    ClipRun run(const std::string& file, const std::string& config = "") {
        Clip clip{"gate", file, std::nullopt, 0, 0, {}};
        return clipRun(clip, *configsOf("[[camera]]\nname='gate'\n" + config).find("gate"), "test");
    }
    PoolEnd work(const std::vector<ClipRun>& runs, const std::function<void(const PoolProgress&)>& tick = nullptr) {
        PoolSettings settings;
        settings.program = FLEIFEISA_HOST;
        settings.jobs = 2;
        return runClips(archive_, runs, settings, stop_, tick);
    }
    static std::string street(int seed, int frames = 120) {
        return "scene:street?size=96x72&quiet=20&seed=" + std::to_string(seed) + "&frames=" + std::to_string(frames);
    }
    bool partsLeft() const { return !fs::is_empty(archive_.path("parts")); }

    Folder folder_;
    Archive archive_{folder_ / "archive"};
    Event stop_;
};

TEST_F(PoolTest, MakesWhatIsMissingAndNothingElse) {
    folder_.write("broken.mp4", std::string(5000, 'x'));
    std::vector<ClipRun> runs{run(street(1)), run(street(2)), run(folder_ / "broken.mp4")};
    PoolEnd end = work(runs);
    EXPECT_EQ(std::tuple(end.made, end.done, end.failed, end.stopped), std::tuple(2, 2, 1, false));
    const auto failures = archive_.failures();
    ASSERT_TRUE(failures.contains(runs[2].name));
    EXPECT_NE(failures.at(runs[2].name).reason.find("broken.mp4"), std::string::npos);
    EXPECT_TRUE(failures.at(runs[2].name).lasting);
    const ClipSummary summary = archive_.summary(runs[0].name);
    EXPECT_EQ(std::tuple(summary.frames, summary.width, summary.height), std::tuple(120, 96, 72));
    EXPECT_GT(summary.detected, 0);
    EXPECT_NE(summary.hashes(), archive_.summary(runs[1].name).hashes());

    // A new clip and a changed configuration are all that is run; the damaged one is left alone.
    runs.push_back(run(street(3)));
    runs[1] = run(street(2), "size='48x36'");
    end = work(runs);
    EXPECT_EQ(std::tuple(end.made, end.done, end.failed), std::tuple(2, 3, 1));
    EXPECT_EQ(archive_.journal().size(), 5U);
    EXPECT_FALSE(partsLeft());
}

TEST_F(PoolTest, TheSameBytesEachTime) {
    const ClipRun one = run(street(1), "outputs=['recording']\n[[camera.line]]\nname='l'\npoints=[[0.5,0],[0.5,1]]");
    work({one});
    std::map<std::string, std::string> first;
    for (const char* file : {"summary.json", "tracks.jsonl", "events.jsonl", "recording.bin"})
        first[file] = readFile(archive_.resultOf(one.name) + '/' + file);
    fs::remove_all(archive_.resultOf(one.name));
    work({one});
    for (const auto& [file, text] : first)
        EXPECT_TRUE(readFile(archive_.resultOf(one.name) + '/' + file) == text) << file;
}

TEST_F(PoolTest, AChildThatIsKilledCostsItsClip) {
    const std::vector<ClipRun> runs{run(street(1)), run(street(2, 100000))};
    std::atomic<bool> killed{false};
    const PoolEnd end = work(runs, [&](const PoolProgress&) {
        for (const auto& part : fs::directory_iterator(archive_.path("parts"))) {
            const std::string name = part.path().filename();
            if (name.starts_with(runs[1].name) && !killed.exchange(true))
                ::kill(std::stoi(name.substr(name.rfind('.') + 1)), SIGKILL);
        }
    });
    EXPECT_EQ(std::tuple(end.done, end.failed), std::tuple(1, 1));
    EXPECT_EQ(archive_.failures().at(runs[1].name).reason, "signal 9 (Killed)");
    EXPECT_FALSE(archive_.failures().at(runs[1].name).lasting);
    EXPECT_FALSE(partsLeft());
}

TEST_F(PoolTest, AStopLeavesNothingHalfMade) {
    const std::vector<ClipRun> runs{run(street(1, 100000)), run(street(2, 100000))};
    const PoolEnd end = work(runs, [this](const PoolProgress& progress) {
        if (progress.frames > 0) stop_.set();
    });
    EXPECT_TRUE(end.stopped);
    EXPECT_EQ(std::tuple(end.done, end.failed), std::tuple(0, 0));
    EXPECT_FALSE(partsLeft());
}

TEST_F(PoolTest, OfTwoThatMakeTheSameOneStays) {
    const ClipRun one = run(street(1));
    work({one});
    const std::string part = archive_.partOf(one.name, 1);
    const auto again = [&](const std::string& from, const std::string& to) {
        fs::copy(archive_.resultOf(one.name), part, fs::copy_options::recursive);
        std::string text = readFile(part + "/summary.json");
        if (const std::size_t at = text.find(from); at != std::string::npos) text.replace(at, from.size(), to);
        std::ofstream(part + "/summary.json") << text;
        return archive_.finish(part, one.name);
    };
    EXPECT_FALSE(again("", ""));
    EXPECT_FALSE(fs::exists(part));
    EXPECT_THROW(again(archive_.summary(one.name).replies_hash, "other"), std::runtime_error);
}

}  // namespace
}  // namespace fleifeisa::host
