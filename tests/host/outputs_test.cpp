// Outputs of the camera host: documented bytes, independent readers, failures.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <regex>
#include <sstream>

#include "camera/output_types.h"
#include "common/process.h"
#include "common/text.h"
#include "host/output_runs.h"
#include "image/ImageFiles.h"
#include "outputs/track_path.h"
#include "outputs/track_table.h"
#include "outputs/video.h"
#include "report/median_background.h"
#include "support/process.h"
#include "tracks/raw_tracks.h"

namespace fleifeisa::host::test {
namespace {

/// The message of the OutputError that `action` ends with, "" where it ends without.
template <typename Action>
std::string failureOf(const Action& action) {
    try {
        action();
    } catch (const OutputError& error) {
        return error.what();
    }
    return "";
}

/// The blocks of docs/outputs.md that begin with ```TYPE example, unescaped where they are shown with escapes.
std::string documented(const std::string& type) {
    const std::string text = readFile(std::string(FLEIFEISA_SOURCE_DIR) + "/docs/outputs.md");
    const std::string open = "```" + type + " example\n";
    const std::size_t begin = text.find(open);
    if (begin == std::string::npos) return "no example of " + type;
    const std::size_t end = text.find("```", begin + open.size());
    return text.substr(begin + open.size(), end - begin - open.size());
}

/// Requests and replies as docs/outputs.md writes them: \r\n spelt out, bodies as {LENGTH bytes}.
std::string spelt(std::string bytes) {
    const std::regex body("(image/rgb\r\nContent-Length: (\\d+)\r\n[^]*?\r\n\r\n)");
    std::string result;
    std::smatch found;
    while (std::regex_search(bytes, found, body)) {
        result += found.prefix().str() + found[1].str() + "{" + found[2].str() + " bytes}\n";
        bytes = bytes.substr(static_cast<std::size_t>(found.position()) + static_cast<std::size_t>(found.length()) +
                             std::stoul(found[2]));
    }
    return std::regex_replace(result + bytes, std::regex("\r\n"), "\\r\\n\n");
}

TEST(OutputFiles, AreThoseOfTheDocumentation) {
    const TempDir directory;
    for (const std::string type : {"jsonl", "mot", "onvif", "tracks", "recording", "replies"}) {
        const std::string path = directory.path + "/" + type;
        play(documentedRun(), type, path);
        const std::string bytes = readFile(path);
        EXPECT_EQ(type == "recording" || type == "replies" ? spelt(bytes) : bytes, documented(type)) << type;
        EXPECT_FALSE(exists(path + ".part")) << type;
    }
}

TEST(OutputFiles, HoldUnderIndependentReaders) {
    const TempDir directory;
    const std::string checker = std::string(FLEIFEISA_SOURCE_DIR) + "/tests/host/check_outputs.py";
    for (const std::uint32_t seed : {1u, 2u, 3u}) {
        const Scenario run = awkwardRun(seed);
        for (const std::string type : {"jsonl", "mot", "onvif", "tracks", "report"})
            play(run, type, directory.path + "/" + type);
        const std::string once = readFile(directory.path + "/report");
        play(run, "report", directory.path + "/again");
        EXPECT_EQ(once, readFile(directory.path + "/again")) << "the same run gives another report";
        std::string starts;
        for (std::size_t i = 0; i < run.frames.size(); ++i)
            if (i == 0 || run.frames[i].restart) starts += " " + std::to_string(i + 1);
        const std::string command = "python3 -B '" + checker + "' '" + directory.path + "'" + starts;
        EXPECT_EQ(std::system(command.c_str()), 0) << "seed " << seed;
    }
}

TEST(OutputFiles, AreThereOnceComplete) {
    struct Case {
        std::string type;
        bool in_place;
        bool without_frames;  ///< a file even then
        bool part_stays;      ///< of an output that was not finished
    };
    const TempDir directory;
    for (const Case& c : {Case{"jsonl", true, true, false},
                          {"mot", true, true, false},
                          {"tracks", true, true, false},
                          {"events", true, true, false},
                          {"replies", true, true, false},
                          {"recording", true, true, false},
                          {"onvif", false, true, true},
                          {"report", false, true, false},
                          {"video", false, false, false}}) {
        if (c.type == "video" && findProgram("ffmpeg").empty()) continue;
        const std::string path = directory.path + "/" + c.type;
        std::unique_ptr<Output> output = makeOutput({c.type, path}, documentedRun().camera);
        feed(*output, documentedRun(), 0);
        output.reset();
        EXPECT_EQ(exists(path), c.in_place) << c.type;
        EXPECT_EQ(exists(path + ".part"), c.part_stays) << c.type;
        output = makeOutput({c.type, path}, documentedRun().camera);
        EXPECT_EQ(exists(path), c.in_place) << c.type;
        EXPECT_EQ(exists(path + ".part"), !c.in_place) << c.type;
        output->finish();
        output->finish();
        EXPECT_EQ(exists(path), c.without_frames) << c.type;
        EXPECT_FALSE(exists(path + ".part")) << c.type;
    }
}

TEST(OutputFiles, ThatCannotBeMadeSayWhy) {
    const TempDir directory;
    const CameraInfo camera = documentedRun().camera;
    for (const OutputType& type : outputTypes()) {
        const std::string path = directory.path + "/missing/file";
        EXPECT_EQ(failureOf([&] {
                      makeOutput({std::string(type.name), path}, camera);
                  }),
                  path + ": No such file or directory")
            << type.name;
    }
    EXPECT_NE(failureOf([&] {
                  makeOutput({"jsonl", directory.path}, camera);
              }).find("Is a directory"),
              std::string::npos);
    EXPECT_NE(failureOf([&] { makeOutput({"pdf", directory.path + "/x"}, camera); }).find("'pdf'"), std::string::npos);
    for (const std::string type : {"jsonl", "onvif", "report", "recording"})
        EXPECT_EQ(failureOf([&] { play(awkwardRun(1), type, "/dev/full"); }), "/dev/full: No space left on device")
            << type;
}

/// Lets files grow to so many bytes, as on a disk that runs full, for as long as it lives.
class FullDisk {
 public:
    explicit FullDisk(rlim_t limit) {
        std::signal(SIGXFSZ, SIG_IGN);
        ::getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit size{limit, before_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &size);
    }
    ~FullDisk() { ::setrlimit(RLIMIT_FSIZE, &before_); }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

 private:
    rlimit before_{};
};

/// A run whose frames are larger than the writer's buffer, with fresh analyzers at frames 6 and 12.
Scenario largeFrames() {
    Scenario run = documentedRun();
    run.frames.clear();
    for (int i = 0; i < 18; ++i)
        run.frames.push_back(
            {.restart = i % 6 == 5, .width = 200, .height = 120, .objects = {object(3, i, 4, 9, 9, 5)}});
    return followed(run);
}

TEST(OutputFiles, EndWithAWholeRecordWhereTheDiskIsFull) {
    const TempDir directory;
    const Scenario large = largeFrames(), small = awkwardRun(4);
    Scenario buffered = small;  // of a file: what is written leaves in lumps
    buffered.camera.live = false;
    for (const std::string type : {"jsonl", "mot", "tracks", "events", "replies", "recording"})
        for (const Scenario* run : {&small, &std::as_const(buffered), &large}) {
            const std::string path = directory.path + "/" + type;
            play(*run, type, path);
            const std::string whole = readFile(path);
            ASSERT_GT(whole.size(), 300u);
            for (const std::size_t limit : {whole.size() / 3, whole.size() - 1}) {
                {
                    const FullDisk disk(limit);
                    EXPECT_EQ(failureOf([&] { play(*run, type, path); }), path + ": File too large");
                }
                const std::string cut = readFile(path);
                EXPECT_EQ(cut, whole.substr(0, cut.size())) << type;
                const std::string end = type == "recording" ? "\r\n\r\n" : "\n";
                EXPECT_TRUE(cut.empty() || cut.ends_with(end)) << type;
                EXPECT_GT(cut.size(), limit / 2) << type << ": more than a record is gone";
                const std::size_t last = cut.rfind("ANALYTICS.CARTRIDGE");
                const std::string_view begin = std::string_view(cut).substr(std::min(last + 21, cut.size()));
                EXPECT_EQ(begin.starts_with("Recording-Reply") || begin.starts_with("Recording-Ended"),
                          type == "recording");
            }
        }
    for (const std::string type : {"onvif", "report"}) {
        const std::string path = directory.path + "/" + type;
        {
            const FullDisk disk(5000);
            EXPECT_EQ(failureOf([&] { play(small, type, path); }), path + ": File too large");
        }
        EXPECT_FALSE(exists(path)) << "an incomplete document under the name of a complete one";
        EXPECT_EQ(exists(path + ".part"), type == "onvif");
    }
}

/// A recording without what it holds of tracks.
std::string withoutTracks(std::string text) {
    for (const char* name : {"Tracks", "Filter", "Rules", "Ended"}) {
        const std::string note = std::string("ANALYTICS.CARTRIDGE\r\nRecording-") + name;
        for (std::size_t at = text.find(note); at != std::string::npos; at = text.find(note, at))
            text.erase(at, text.find("\r\n\r\n", at) + 4 - at);
    }
    return text;
}

/// Feeds all of a run, with a full disk between two frames. Returns how often it failed.
int playThroughFullDisk(Output& output, const Scenario& run, std::size_t from, std::size_t to, rlim_t limit) {
    int failures = 0;
    for (std::size_t i = 0; i < run.frames.size(); ++i) {
        std::optional<FullDisk> disk;
        if (i >= from && i < to) disk.emplace(limit);
        failures += failureOf([&] { feed(output, run, i); }).ends_with("File too large");
    }
    end(output, run);
    return failures;
}

TEST(OutputFiles, AreWrittenAgainOnceThereIsSpace) {
    const TempDir directory;
    const Scenario run = awkwardRun(4);
    for (const std::string type : {"jsonl", "mot", "tracks", "replies", "onvif"}) {
        const std::string path = directory.path + "/" + type;
        play(run, type, path);
        const std::string whole = readFile(path);
        // The first attempt comes at once, as the next record comes; what was held back follows in its order.
        const auto output = makeOutput({type, path, {.retry_seconds = 0}}, run.camera);
        EXPECT_GT(playThroughFullDisk(*output, run, 100, 400, 4000), 1) << type;
        EXPECT_FALSE(output->state().failing);
        EXPECT_EQ(output->state().lost, 0u) << type;
        EXPECT_EQ(readFile(path), whole) << type;
    }
    // Records that are not held back, because they are larger than the buffer.
    Scenario crowd = documentedRun();
    crowd.frames.assign(12, {.width = 320, .height = 240, .objects = std::vector(2000, object(0, 1, 2, 3, 4, 5))});
    const std::string lines = directory.path + "/crowd";
    play(crowd, "jsonl", lines);
    const std::string all = readFile(lines);
    const auto again = makeOutput({"jsonl", lines, {.retry_seconds = 0}}, crowd.camera);
    EXPECT_EQ(playThroughFullDisk(*again, crowd, 3, 8, all.size() / 3), 4);
    EXPECT_EQ(again->state().lost, 4u);  // the fourth is written still
    EXPECT_EQ(readFile(lines), all.substr(0, all.find("{\"camera\":\"gate\",\"sequence\":5,")) +
                                   all.substr(all.find("{\"camera\":\"gate\",\"sequence\":9,")));
    // More than can be held back: what is there are whole records, what is missing is counted.
    const Scenario large = largeFrames();
    const std::string path = directory.path + "/recording";
    play(large, "recording", path);
    const std::string whole = readFile(path);
    const auto output = makeOutput({"recording", path, {.retry_seconds = 0}}, large.camera);
    EXPECT_GE(playThroughFullDisk(*output, large, 2, 9, 200'000), 1);
    // Frames 3 and 4 are lost with all that follow until a fresh analyzer begins while there is space: the 12th.
    std::size_t second = 0;
    for (int starts = 0; starts < 3; ++starts)
        second = whole.find("ANALYTICS.CARTRIDGE\r\nRecording-Start", second + 1);
    const std::string kept = readFile(path), rest = withoutTracks(whole.substr(second));
    ASSERT_TRUE(withoutTracks(kept).ends_with(rest));
    // Tracks need all frames: from there on a replay makes some of its own, which nothing is said of.
    const std::string after = kept.substr(kept.rfind("Recording-Start"));
    EXPECT_NE(after.find("Recording-Filter"), std::string::npos);
    EXPECT_EQ(after.find("Recording-Tracks"), std::string::npos);
    EXPECT_TRUE(whole.starts_with(kept.substr(0, kept.find("ANALYTICS.CARTRIDGE\r\nRecording-Start", 1))));
    EXPECT_EQ(output->state().lost, 9u) << "frames without the ones before them";
}

TEST(OutputFiles, RotateInWholeRecords) {
    const TempDir directory;
    const Scenario run = awkwardRun(6);
    for (const std::string type : {"jsonl", "mot", "tracks", "replies"}) {
        const std::string path = directory.path + "/" + type;
        play(run, type, path);
        const std::string whole = readFile(path);
        const Rotation rotation{.bytes = whole.size() / 6, .keep = 0};
        play(run, type, path, {.rotation = rotation});
        std::string joined;
        int files = 0;
        for (; exists(path + "." + std::to_string(files + 1)); ++files) {
            const std::string part = readFile(path + "." + std::to_string(files + 1));
            EXPECT_LE(part.size(), rotation.bytes) << type;
            EXPECT_TRUE(part.ends_with("\n")) << type;
            joined += part;
        }
        EXPECT_EQ(joined + readFile(path), whole) << type;
        EXPECT_GE(files, 6) << type;
        // The earlier ones count, and only the latest stay. By age: every flush is late enough.
        play(run, type, path, {.rotation = {.bytes = 0, .seconds = 1e-9, .keep = 3}});
        int left = 0;
        for (const auto& entry : std::filesystem::directory_iterator(directory.path))
            left += entry.path().filename().string().starts_with(type + ".");
        EXPECT_EQ(left, 3) << type;
        EXPECT_FALSE(exists(path + "." + std::to_string(files))) << type;
    }
    // A recording only where an analyzer begins, which it asks for: each file is one that can be replayed alone.
    const Scenario large = largeFrames();
    const std::string path = directory.path + "/recording";
    const auto output = makeOutput({"recording", path, {.rotation = {.bytes = 100'000}}}, large.camera);
    for (std::size_t i = 0; i < large.frames.size(); ++i) {
        feed(*output, large, i);
        EXPECT_EQ(output->state().wants_fresh_analyzer, i != 0 && i % 6 != 5) << i;
    }
    output->finish();
    for (const char* name : {"", ".1", ".2", ".3"}) {
        const std::string file = readFile(path + name);
        EXPECT_TRUE(file.starts_with("ANALYTICS.CARTRIDGE\r\nRecording-Start")) << name;
        EXPECT_TRUE(file.ends_with("Command: SHUTDOWN\r\n\r\n")) << name;
    }
}

TEST(OutputFiles, FollowWhoeverMovesOrEmptiesThem) {
    const TempDir directory;
    const Scenario run = awkwardRun(7);
    const std::string path = directory.path + "/jsonl";
    play(run, "jsonl", path);
    const std::string whole = readFile(path);
    const auto output = makeOutput({"jsonl", path}, run.camera);
    std::string joined;
    for (std::size_t i = 0; i < run.frames.size(); ++i) {
        if (i == 100) std::filesystem::rename(path, path + ".moved");
        if (i == 200) {
            joined = readFile(path + ".moved") + readFile(path);
            std::filesystem::resize_file(path, 0);  // as logrotate's copytruncate does
        }
        if (i == 300) {
            joined += readFile(path);
            std::filesystem::remove(path);
        }
        feed(*output, run, i);
    }
    end(*output, run);
    EXPECT_EQ(joined + readFile(path), whole);
}

TEST(OutputFiles, OfAServiceKeepWhatEarlierRunsLeft) {
    const TempDir directory;
    for (const std::string type : {"jsonl", "onvif", "report"}) {
        const std::string path = directory.path + "/new/" + type;
        const auto make = [&] { return makeOutput({type, path, {.service = true}}, documentedRun().camera); };
        make();  // with its directory
        for (const std::string text : {"first", "second"}) {
            std::ofstream(path) << text;
            std::ofstream(path + ".part") << text;  // as a service that was killed leaves it
            make();
        }
        EXPECT_EQ(readFile(path + ".1") + readFile(path + ".2"), "firstsecond") << type;
        EXPECT_EQ(readFile(path + ".part.1"), type == "jsonl" ? "" : "first") << type;
    }
}

TEST(RawTracks, HaveUniqueNumbersAndEndAfterAGap) {
    struct Step {
        std::int64_t frame;  ///< those between are empty
        std::vector<int> ids;
        std::vector<std::int64_t> numbers, ended;
    };
    RawTracks raw;
    const Step steps[] = {
        {1, {7, 0, 0, 7}, {7, 100000, 200000, 300000}, {}},
        {2, {8}, {8}, {}},
        {26, {7}, {7}, {}},                         // the 25th frame after: still the same
        {27, {-5, 100000}, {400000, 500000}, {8}},  // 8 was not in the 25 frames up to this one
        {50, {}, {}, {}},
        {51, {}, {}, {7}},
        {52, {99999, 7}, {99999, 100007}, {}},  // in the reply's order
    };
    std::int64_t frame = 0;
    for (const Step& step : steps) {
        std::vector<AnalyzerObject> objects;
        for (const int id : step.ids) objects.push_back(object(id, static_cast<int>(step.frame), 0, 1, 1, 100));
        while (++frame < step.frame) raw.frame({frame, 64, 48, {}, true, {}});
        std::vector<std::int64_t> numbers, ended;
        for (const Track& track : raw.frame({frame, 64, 48, {}, true, objects}).tracks) {
            if (track.state == TrackState::kEnded) ended.push_back(track.number);
            if (track.seen_ns == frame) numbers.push_back(track.number);
        }
        EXPECT_EQ(numbers, step.numbers) << step.frame;
        EXPECT_EQ(ended, step.ended) << step.frame;
    }
    raw.analyzerRestarted();  // what lived is told with the next frame
    const std::vector<AnalyzerObject> again = {object(7, 0, 0, 1, 1, 100)};
    const TrackFrame fresh = raw.frame({53, 64, 48, {}, true, again});
    ASSERT_EQ(fresh.tracks.size(), 3u);
    EXPECT_EQ(fresh.tracks[0].number, 200007);
    EXPECT_EQ(fresh.tracks[1].number, 99999);
    EXPECT_EQ(fresh.tracks[2].ended, TrackEnd::kLost);
    ASSERT_EQ(raw.end(TrackEnd::kSource).tracks.size(), 1u);
}

TEST(TrackSettings, ComeBackFromTheirText) {
    TrackSettings settings;
    EXPECT_EQ(parseSettings(settingsText(settings)), settings);
    settings = {
        true, {.least_area = 1.0 / 3, .shadow_test = false, .split_people = true, .infrared = true}, 7, 1'234'567};
    const std::string text = settingsText(settings);
    EXPECT_EQ(parseSettings(text), settings);
    for (std::size_t i = 0; i < text.size(); ++i) EXPECT_NE(parseSettings(text.substr(0, i)), settings) << i;
    for (const char* bad : {"", "wild", "raw ", "raw next=1", "filtered least-area=nan shadow-test=1"})
        EXPECT_FALSE(parseSettings(bad)) << bad;
}

TEST(TrackPaths, StayShortAndKeepTheirEnds) {
    for (const int count : {1, 2, 255, 256, 257, 511, 512, 513, 20'000}) {
        TrackPath path;
        for (int i = 0; i < count; ++i) path.add(i, {3.0 * i + 5, 4.0 * i + 5});
        ASSERT_LE(path.points().size(), TrackPath::kMaxPoints) << count;
        EXPECT_EQ(path.points().front().time_ns, 0) << count;
        EXPECT_EQ(path.points().back().time_ns, count - 1) << count;
        EXPECT_DOUBLE_EQ(path.length(), 5.0 * (count - 1)) << count;
        std::int64_t widest = 0;
        for (std::size_t i = 1; i < path.points().size(); ++i)
            widest = std::max(widest, path.points()[i].time_ns - path.points()[i - 1].time_ns);
        EXPECT_LE(widest, 1 + count / 64) << "thinned unevenly";
    }
}

TEST(Report, StaysBoundedAndSaysWhatIsMissing) {
    Scenario run = documentedRun();
    run.frames.clear();
    for (int i = 0; i < 6000; ++i)  // a new track every other frame; each third one lasts 12 frames
        run.frames.push_back({.width = 16, .height = 12, .objects = {}});
    for (int track = 0; track < 3000; ++track)
        for (int i = 0; i < (track % 3 ? 1 : 12) && 2 * track + i < 6000; ++i)
            run.frames[static_cast<std::size_t>(2 * track + i)].objects.push_back(object(track + 1, 2, 2, 5, 5, 50));
    const TempDir directory;
    run = followed(run);
    play(run, "report", directory.path + "/page");
    const std::string page = readFile(directory.path + "/page");
    const std::regex row("<tr data-t");
    const auto rows = std::distance(std::sregex_iterator(page.begin(), page.end(), row), std::sregex_iterator());
    EXPECT_GE(rows, 800);
    EXPECT_LE(rows, 1000);
    EXPECT_NE(page.find("briefest " + std::to_string(3000 - rows) + " are not shown"), std::string::npos);
    EXPECT_LT(page.size(), 4'000'000u);
    std::int64_t share = 0;  // in millionths of the picture: half of 5 x 5 pixels of 16 x 12 for each object
    for (const Frame& frame : run.frames)
        share += static_cast<std::int64_t>(frame.objects.size()) * 25 * 1'000'000 / 2 / (16 * 12);
    EXPECT_NE(page.find(fixedPoint((share / 6000 + 500) / 1000, 1) + " %<small>of the picture"), std::string::npos);
}

/// Everything in the page that stands between `before` and `after`, in order.
std::vector<std::string> between(const std::string& page, const std::string& before, const std::string& after) {
    std::vector<std::string> found;
    for (std::size_t at = page.find(before); at != std::string::npos; at = page.find(before, at)) {
        at += before.size();
        found.push_back(page.substr(at, page.find(after, at) - at));
    }
    return found;
}

std::string fromBase64(std::string_view text) {
    constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < text.size() && text[i] != '='; ++i) {
        bits = bits << 6 | static_cast<std::uint32_t>(kDigits.find(text[i]));
        if (i % 4 > 0) bytes += static_cast<char>(bits >> (6 - i % 4 * 2));
    }
    return bytes;
}

TEST(Report, ShowsTheValuesOfTheRun) {
    Scenario run = documentedRun();
    run.frames.assign(40, {.width = 64, .height = 48, .objects = {}});
    for (int i = 5; i < 25; ++i)
        run.frames[static_cast<std::size_t>(i)].objects.push_back(object(7, 2 * i, 10, 8, 6, 50));
    for (int i = 20; i < 32; ++i)
        run.frames[static_cast<std::size_t>(i)].objects.push_back(object(8, 30, 40 - i, i == 26 ? 16 : 8, 6, 100));
    const TempDir directory;
    play(followed(run), "report", directory.path + "/page");
    const std::string page = readFile(directory.path + "/page");
    // Of track 7: frames 6 to 25 at 10 a second, 19 steps of 2 pixels. Of 8: frames 21 to 32, 11 steps of a pixel
    // upwards and, in two of them, 4 pixels sideways; its largest box is seen once.
    const auto shown = [&](const char* name) {
        std::vector<std::string> values;
        for (const std::string& cell : between(page, std::string("<td data-l=\"") + name + "\" data-v=", "</td>"))
            values.push_back(cell.substr(cell.find('>') + 1));
        return values;
    };
    using Values = std::vector<std::string>;
    EXPECT_EQ(shown("First seen"), (Values{"0:00.5", "0:02.0"}));
    EXPECT_EQ(shown("Last seen"), (Values{"0:02.4", "0:03.1"}));
    EXPECT_EQ(shown("Time between"), (Values{"0:01.9", "0:01.1"}));
    EXPECT_EQ(shown("Frames"), (Values{"20", "12"}));
    EXPECT_EQ(shown("Path"), (Values{"38 px", "17 px"}));  // 9 + 2 * sqrt(17)
    EXPECT_EQ(shown("Largest box"), (Values{"8 × 6", "16 × 6"}));
    // 20 * 24 + 11 * 48 + 96 pixels of 64 * 48 in 40 frames; frame 27 has the most.
    EXPECT_EQ(between(page, "Foreground on average</dt><dd>", "<small>"), Values{"0.9 %"});
    EXPECT_EQ(between(page, "of the picture; ", " at most"), Values{"3.1 %"});
    EXPECT_EQ(between(page, "Most at once</dt><dd>", "<small>"), Values{"2"});
    EXPECT_EQ(between(page, "Length</dt><dd>", "<small>"), Values{"0:04.0"});
    // Over time: nothing at the bottom of the scale, the most on top.
    std::string chart = between(page, "<title id=\"share-title\">", "</svg>").at(0);
    chart.erase(0, chart.rfind("<g class=\"axis\">"));
    const auto labels = between(chart, "dy=\"4\" text-anchor=\"end\">", "</text>");
    ASSERT_EQ(labels.size(), 3u);
    EXPECT_EQ(labels[0], "0 %");
    const auto lines = between(chart, "<path d=\"M", "H"),
               texts = between(chart, "\" y=\"", "\" dy=\"4\" text-anchor=\"end\"");
    ASSERT_GE(texts.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(lines.at(i).substr(lines[i].find(' ') + 1), texts[i]) << "a label stands at its line";
        EXPECT_TRUE(i == 0 || std::stod(texts[i]) < std::stod(texts[i - 1]));
    }
    // Thumbnails as they stand in the page: the box of 8 x 6 with 4 and 3 pixels around, that of 16 x 6 with 5 and 3.
    const auto thumbs = between(page, "<td class=\"thumb\"><img alt=\"\" src=\"data:image/jpeg;base64,", "\"");
    ASSERT_EQ(thumbs.size(), 2u);
    for (const std::size_t i : {0u, 1u}) {
        const std::string bytes = fromBase64(thumbs[i]);
        const LoadedImage image = LoadImageBytes({reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()});
        ASSERT_NE(image.pixels, nullptr) << image.error;
        const int margin = i == 0 ? 4 : 5, width = i == 0 ? 8 : 16;
        ASSERT_EQ(std::pair(image.width, image.height), std::pair(width + 2 * margin, 6 + 2 * 3));
        const auto at = [&](int x, int y, std::size_t c) {
            return image.pixels[static_cast<std::size_t>(y * image.width + x) * 3 + c];
        };
        const std::size_t colour = i == 0 ? 1 : 2;
        for (const int x : {margin + 1, margin + width - 2}) EXPECT_NEAR(at(x, 6, colour), 230, 40) << i << x;
        for (const int x : {1, image.width - 2}) EXPECT_NEAR(at(x, 6, colour), 90, 40) << i << x;
        EXPECT_NEAR(at(margin + width / 2, 0, colour), 90, 40) << i;
        std::free(image.pixels);
    }
}

TEST(Report, AWayIsDrawnWithItsCornersAndWithoutJitter) {
    Scenario run = documentedRun();
    run.frames.assign(62, {.width = 512, .height = 160, .objects = {}});
    for (int i = 0; i < 60;
         ++i)  // to the right, then down, too; the box's height differs by a pixel from frame to frame
        run.frames[static_cast<std::size_t>(i)].objects.push_back(
            object(7, 4 * i, 20 + std::max(0, 2 * (i - 30)), 8, 6 + i % 2, 50));
    const TempDir directory;
    play(followed(run), "report", directory.path + "/page");
    const std::string way = between(readFile(directory.path + "/page"), "<path class=\"way\" d=\"", "\"").at(0);
    std::istringstream numbers(way.substr(way.find('l') + 1));
    double across = 0, down = 0;
    int vectors = 0;
    for (double x = 0, y = 0; numbers >> x >> y; ++vectors) {
        across += x;
        down += y;
    }
    EXPECT_NEAR(across, 4 * 59, 1) << way;
    EXPECT_NEAR(down, 2 * 29, 1.5) << way;
    EXPECT_GE(vectors, 2) << way;
    EXPECT_LE(vectors, 4) << way;
}

TEST(Report, BackgroundIsTheMedianAndThumbnailsTheLargestMoment) {
    MedianBackground background;
    for (const int level : {10, 200, 30, 20, 250}) {
        const std::vector<std::uint8_t> rgb(4 * 3 * 3, static_cast<std::uint8_t>(level));
        background.add({4, 3, rgb});
    }
    EXPECT_EQ(background.median().rgb, std::vector<std::uint8_t>(4 * 3 * 3, 30));
    // Left half dark, right half bright: a cut keeps its place, and is filled up with the edge beyond the picture.
    std::vector<std::uint8_t> rgb;
    for (int i = 0; i < 8 * 4 * 3; ++i) rgb.push_back(i / 3 % 8 < 4 ? 10 : 90);
    const Picture cut = reduced({8, 4, rgb}, {2, 1, 4, 2}, 4, 4);
    ASSERT_EQ(cut.width * 10 + cut.height, 42);
    for (int x = 0; x < 4; ++x) EXPECT_EQ(cut.rgb[static_cast<std::size_t>(x * 3)], x < 2 ? 10 : 90) << x;
}

TEST(TrackTable, ShowsTheLongestInTheOrderOfTheirAppearance) {
    TrackTable table;
    Scenario run = documentedRun();
    run.frames.assign(30, {.objects = {}});
    const auto see = [&](int id, int from, int count, int left, int step) {
        for (int i = 0; i < count; ++i)
            run.frames[static_cast<std::size_t>(from + i)].objects.push_back(
                object(id, left + i * step, 5, 10, 20 + i % 2, 50));
    };
    see(9, 2, 11, 0, 3);
    see(4, 0, 2, 1, 0);
    see(9, 20, 5, 40, -1);  // behind a restart: another one
    run.frames[18].restart = true;
    run = followed(run);
    for (std::size_t i = 0; i < run.frames.size(); ++i) feed(table, run, i);
    EXPECT_EQ(table.size(), 3u);
    // 10 steps of 3 pixels right with half a pixel up and down: 10 * sqrt(9.25) = 30.4.
    EXPECT_EQ(table.text(2),
              " track   first frame    last   path/px   median box (left, top, width x height)\n"
              "     9             3      13        30      15,     5,    10 x 20\n"
              "100009            21      25         4      38,     5,    10 x 20\n"
              "(the 2 longest of 3 tracks)\n");
    EXPECT_EQ(TrackTable().text(5), "Nothing was tracked.\n");
}

TEST(OutputFiles, OfFramesWiderThanAnyScreen) {
    const TempDir directory;
    for (const int width : {2049, 4097, 16384}) {
        Scenario run = documentedRun();
        run.frames.clear();
        for (int i = 0; i < 4; ++i)
            run.frames.push_back({.width = width, .height = 3, .objects = {object(5, width - 20 + i, -9, 30, 16, 60)}});
        run.frames.push_back({.width = 3, .height = width, .objects = {object(5, -16, width - 9, 30, 16, 60)}});
        run = followed(run);
        for (const OutputType& type : outputTypes()) {
            if (type.name == "video" && (findProgram("ffmpeg").empty() || width == 16384)) continue;
            const std::string path = directory.path + "/" + std::string(type.name);
            play(run, std::string(type.name), path);
            EXPECT_GT(readFile(path).size(), 100u) << type.name << " " << width;
        }
    }
}

/// Sets PATH for as long as it lives.
class OtherPath {
 public:
    explicit OtherPath(const std::string& path) : before_(std::getenv("PATH")) { ::setenv("PATH", path.c_str(), 1); }
    ~OtherPath() { ::setenv("PATH", before_.c_str(), 1); }
    OtherPath(const OtherPath&) = delete;
    OtherPath& operator=(const OtherPath&) = delete;

 private:
    std::string before_;
};

TEST(Video, NeedsAnEncoderThatWorks) {
    std::signal(SIGPIPE, SIG_IGN);  // as the host does
    const TempDir directory;
    const std::string path = directory.path + "/out.mp4";
    const OtherPath other(directory.path);
    EXPECT_NE(failureOf([&] { play(documentedRun(), "video", path); }).find("ffmpeg, which was not found"),
              std::string::npos);
    EXPECT_FALSE(exists(path + ".part"));
    std::ofstream(directory.path + "/ffmpeg") << "#!/bin/sh\necho 'Unknown encoder' >&2\nexit 3\n";
    std::filesystem::permissions(directory.path + "/ffmpeg", std::filesystem::perms::owner_all);
    const std::string why = failureOf([&] { play(awkwardRun(5), "video", path); });
    EXPECT_NE(why.find(path), std::string::npos) << why;
    EXPECT_NE(why.find("Unknown encoder"), std::string::npos) << why;
    EXPECT_FALSE(exists(path) || exists(path + ".part"));
}

TEST(Video, SaysWhatIsShown) {
    FrameResult result;
    result.camera = "gate";
    result.sequence = 125;
    result.detection = true;
    result.tracks.scene = SceneState::kWatching;
    result.time_ns = 12'400'000'000;
    EXPECT_EQ(captionOf(result), "gate  0:12.4  frame 125");
    result.tracks.scene = SceneState::kBlind;
    EXPECT_EQ(captionOf(result), "gate  0:12.4  frame 125  blind");
    result.detection = false;
    result.live = true;
    result.time_ns = 951'868'799'000'000'000;
    EXPECT_EQ(captionOf(result), "gate  23:59:59 UTC  frame 125  learning");
}

TEST(Video, ShowsBoxesWhereTheyAre) {
    if (findProgram("ffmpeg").empty()) GTEST_SKIP() << "no ffmpeg";
    const TempDir directory;
    const std::string path = directory.path + "/out.mp4";
    Scenario run;
    run.camera = {.name = "x", .source = "x", .control = ""};  // rate unknown: that of the first two frames
    run.step_ns = 40'000'000;
    for (int i = 0; i < 8; ++i) {
        run.frames.push_back(
            {.width = 99, .height = 75, .objects = {object(6, 20, 20, 40, 30, 90), object(0, 70, -9, 60, 20, 5)}});
        // From the fifth frame on twice the size: the same picture in the same place.
        if (i >= 4) run.frames.back() = {.width = 198, .height = 150, .objects = {object(6, 40, 40, 80, 60, 90)}};
    }
    run.frames.push_back({.width = 3, .height = 600, .objects = {}});  // a line at least
    run = followed(run);
    play(run, "video", path);
    const std::string once = readFile(path);
    play(run, "video", path);
    EXPECT_EQ(once, readFile(path)) << "the same run gives another video";
    const std::string raw = directory.path + "/raw", note = directory.path + "/note";
    const std::string decode =
        "ffmpeg -hide_banner -nostdin -i " + path + " -f rawvideo -pix_fmt yuv420p -y " + raw + " 2> " + note;
    ASSERT_EQ(std::system(decode.c_str()), 0);
    EXPECT_NE(readFile(note).find("25 fps"), std::string::npos);
    const std::string decoded = readFile(raw);
    constexpr std::size_t kPicture = 100 * 76 * 3 / 2;  // even sizes
    ASSERT_EQ(decoded.size(), 9 * kPicture);
    EXPECT_GT(static_cast<int>(static_cast<unsigned char>(decoded[8 * kPicture + 30 * 100 + 49])), 50);
    for (const std::size_t picture : {std::size_t{0}, std::size_t{7}}) {
        const auto luma = [&](std::size_t x, std::size_t y) {
            return static_cast<int>(static_cast<unsigned char>(decoded[picture * kPicture + y * 100 + x]));
        };
        // Ground of 90, the box's line brighter, its black outline darker.
        EXPECT_NEAR(luma(10, 35), 16 + 90 * 220 / 256.0, 8) << picture;
        EXPECT_GT(luma(20, 35), luma(10, 35) + 20) << picture;
        EXPECT_LT(luma(19, 35), luma(10, 35) - 10) << picture;
        // The object is red as far as it reaches.
        const auto chroma = [&](std::size_t plane, std::size_t x) {
            return static_cast<int>(
                static_cast<unsigned char>(decoded[picture * kPicture + 100 * 76 + plane * 50 * 38 + 18 * 50 + x / 2]));
        };
        EXPECT_NEAR(chroma(0, 40), 128 - 14, 8) << picture;
        EXPECT_NEAR(chroma(1, 40), 128 + 61, 12) << picture;
        EXPECT_NEAR(chroma(1, 66), 128, 8) << picture;
    }
}

TEST(Text, OfTimesAndNumbers) {
    const std::pair<std::int64_t, const char*> times[] = {
        {0, "1970-01-01T00:00:00.000000000Z"},
        {-1, "1969-12-31T23:59:59.999999999Z"},
        {951'782'400'000'000'001, "2000-02-29T00:00:00.000000001Z"},
        {1'709'164'800'000'000'000 - 1, "2024-02-28T23:59:59.999999999Z"},
        {4'107'542'400'000'000'000, "2100-03-01T00:00:00.000000000Z"},  // no leap day before it
        {INT64_MIN, "1677-09-21T00:12:43.145224192Z"},
    };
    for (const auto& [time, text] : times) EXPECT_EQ(rfc3339(time), text);
    EXPECT_EQ(fixedPoint(-5, 2), "-0.05");
    EXPECT_EQ(fixedPoint(1234, 1), "123.4");
    EXPECT_EQ(clockTime(3'723'960'000'000), "1:02:03.9");
    EXPECT_EQ(clockTime(125'990'000'000), "2:05.9");
    EXPECT_EQ(clockTime(-1), "0:00.0");
    const std::pair<const char*, const char*> names[] = {
        {"\xC3\xA4\xF0\x9F\x98\x80", "\xC3\xA4\xF0\x9F\x98\x80"},
        {"\xC2\x80\xDF\xBF", "\xC2\x80\xDF\xBF"},  // the first and the last of each length
        {"\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF", "\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF"},
        {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
        {"a\x1B", "a\uFFFD"},
    };
    for (const auto& [name, clean] : names) EXPECT_EQ(cleanUtf8(name), clean);
    // Overlong, half of a surrogate pair, beyond the last character, cut off: each byte is replaced.
    for (const std::string bad : {"\xC0\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xF0\x8F\xBF\xBF",
                                  "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xE2\x82", "\xF0\x9F\x98", "\xC3", "\x80"}) {
        std::string clean;
        for (std::size_t i = 0; i < bad.size(); ++i) clean += "\uFFFD";
        EXPECT_EQ(cleanUtf8(bad), clean) << static_cast<int>(static_cast<unsigned char>(bad[0]));
    }
    const std::pair<const char*, const char*> codes[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo\xFF", "Zm9v/w=="}};
    for (const auto& [bytes, code] : codes) EXPECT_EQ(base64(bytes), code);
}

}  // namespace
}  // namespace fleifeisa::host::test
