// fleifeisa-inspect: what it shows is what the analyzer answers; its pictures, messages and exit statuses.
#include <gtest/gtest.h>
#include <png.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "inspect/colours.h"
#include "inspect/inspect.h"
#include "inspect/page.h"
#include "inspect/pictures.h"
#include "inspect/track_pictures.h"
#include "inspect/track_stage.h"
#include "support/captured.h"
#include "support/images.h"
#include "support/process.h"
#include "support/protocol.h"
#include "support/scene.h"

namespace {

namespace fi = fleifeisa::inspect;

std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

struct Outcome {
    int status;
    std::string out, err;
};
Outcome runTool(std::vector<std::string> args) {
    std::vector<const char*> argv{"fleifeisa-inspect"};
    for (const std::string& a : args) argv.push_back(a.c_str());
    CapturedOutput output;
    testing::internal::CaptureStderr();
    const int status = fi::inspectMain(static_cast<int>(argv.size()), argv.data());
    const std::string err = testing::internal::GetCapturedStderr();
    return {status, output.take(), err};
}

TEST(InspectFrames, Ranges) {
    struct Row {
        const char* text;
        std::vector<int> in, out;
        int last;
    };
    for (const Row& r : {Row{"900", {900}, {899, 901}, 900}, Row{"890-892,950", {890, 892, 950}, {889, 893, 951}, 950},
                         Row{"7-", {7, INT_MAX}, {6}, INT_MAX}, Row{"5,1-2", {1, 2, 5}, {3}, 5}}) {
        const fi::FrameRanges ranges = fi::FrameRanges::parse(r.text);
        for (const int n : r.in) EXPECT_TRUE(ranges.contains(n)) << r.text << " " << n;
        for (const int n : r.out) EXPECT_FALSE(ranges.contains(n)) << r.text << " " << n;
        EXPECT_EQ(ranges.last(), r.last) << r.text;
    }
    for (const char* bad : {"", ",", "1,", "0", "-5", "a", "1-a", "9-8", "1--2", "1-2-3", "1 ", "99999999999", "1;2"})
        EXPECT_THROW(fi::FrameRanges::parse(bad), std::invalid_argument) << bad;
}

TEST(InspectColours, EqualStepsLookEqualAndNumbersDiffer) {
    const auto distance = [](fleifeisa::Rgb x, fleifeisa::Rgb y) {
        const fi::Lab a = fi::toLab(x), b = fi::toLab(y);
        return std::hypot(a.l - b.l, a.a - b.a, a.b - b.b);
    };
    const auto& map = fi::heatMap();
    double total = 0;
    for (std::size_t i = 8; i < map.size(); i += 8) total += distance(map[i - 8], map[i]);
    for (std::size_t i = 8; i < map.size(); i += 8) {
        EXPECT_GT(fi::toLab(map[i]).l, fi::toLab(map[i - 8]).l) << i;
        EXPECT_NEAR(distance(map[i - 8], map[i]), total / 31, 0.15 * total / 31) << i;
    }
    EXPECT_EQ(fi::heat(-1, 10), map.front());
    EXPECT_EQ(fi::heat(10, 10), map.back());
    EXPECT_EQ(fi::heat(std::nan(""), 10), (fleifeisa::Rgb{128, 128, 128}));
    for (int i = 1; i <= 200; i++)
        for (int j = i + 1; j <= i + 8; j++)
            EXPECT_GT(distance(fi::distinct(i), fi::distinct(j)), 0.05) << i << " " << j;
}

// "id x y w h" of every object, from the analyzer's reply and from the detections document.
std::multimap<int, std::string> fromReplies(const std::string& replies) {
    std::multimap<int, std::string> objects;
    const std::regex frame(
        "SEQ=\"(\\d+)\"/>|OID=\"3\\.5\\.(\\d+)\">\\s*<BOX X=\"(\\d+)\" Y=\"(\\d+)\" W=\"(\\d+)\" H=\"(\\d+)\"");
    int number = 0;
    for (std::sregex_iterator i(replies.begin(), replies.end(), frame), end; i != end; ++i) {
        const std::smatch& m = *i;
        if (m[1].matched)
            number = std::stoi(m[1]);
        else
            objects.emplace(number,
                            m[2].str() + " " + m[3].str() + " " + m[4].str() + " " + m[5].str() + " " + m[6].str());
    }
    return objects;
}
std::multimap<int, std::string> fromDocuments(const std::string& directory, int frames) {
    std::multimap<int, std::string> objects;
    const std::regex object(
        "ID=\"(\\d+)\">\\s*<POSITION X=\"(\\d+)\"  Y=\"(\\d+)\"/>\\s*<SIZE W=\"(\\d+)\"  H=\"(\\d+)\"");
    for (int number = 1; number <= frames; number++) {
        char name[64];
        std::snprintf(name, sizeof name, "/frame-%06d-detections.xml", number);
        const std::string text = slurp(directory + name);
        for (std::sregex_iterator i(text.begin(), text.end(), object), end; i != end; ++i)
            objects.emplace(number, (*i)[1].str() + " " + (*i)[2].str() + " " + (*i)[3].str() + " " + (*i)[4].str() +
                                        " " + (*i)[5].str());
    }
    return objects;
}

// A frame of another size and a line that is no message stand in the middle: both are left out, with a word each.
TEST(InspectRun, ShowsWhatTheAnalyzerAnswers) {
    const Scene scene{64, 48, 60, 25, 3, 0, 11};
    std::string stream = sceneStream(scene);
    std::size_t middle = 0;
    for (int i = 0; i < 40; i++) middle = stream.find("ANALYTICS.CARTRIDGE", middle + 1);
    stream.insert(middle, flatFrame(32, 32, 'x', 77) + "HELLO\r\n");
    for (const std::string type : {"COLOR", "IR"}) {
        TempDir dir;
        dir.writeControl(backgroundFrames(20) + "<param name=\"-ir_low\" value=\"0.5\"/>\n");
        const RunResult analyzer = runAnalyzer({type, "STREAMING", "3", "5"}, stream, dir.path);
        ASSERT_EQ(analyzer.status, 0);
        const auto expected = fromReplies(analyzer.out);
        ASSERT_GT(expected.size(), 20u) << type;

        const std::string out = dir.path + "/out";
        const Outcome tool = runTool({dir.write("in.stream", stream), "--type", type, "--control",
                                      dir.path + "/opt/tesra/var/conf/3/qelparams2.conf", "--frames", "1-", "-o", out,
                                      "--xml", "--scale", "1"});
        EXPECT_EQ(tool.status, 0) << tool.err;
        EXPECT_EQ(fromDocuments(out, 60), expected) << type;
        EXPECT_NE(tool.err.find("the size differs"), std::string::npos) << tool.err;
        EXPECT_NE(tool.err.find("Unknown command HELLO"), std::string::npos) << tool.err;
        EXPECT_NE(tool.err.find("60 frames read, 60 shown"), std::string::npos) << tool.err;
        EXPECT_EQ(tool.out, "");

        // The page names every picture that there is, and no other.
        const std::string page = slurp(out + "/index.html");
        const std::regex source("src=\"([^\"]+)\"");
        std::size_t shown = 0;
        for (std::sregex_iterator i(page.begin(), page.end(), source), end; i != end; ++i, shown++)
            EXPECT_TRUE(std::filesystem::exists(out + "/" + (*i)[1].str())) << (*i)[1].str();
        // The track filter's own pictures are missing where it holds still because the light changed.
        std::size_t watching = 0;
        for (std::size_t at = 0; (at = page.find("Scene</dt><dd>watching<", at)) != std::string::npos; at++) watching++;
        EXPECT_GT(watching, 30u);
        EXPECT_EQ(shown, 20u * 3 + 40u * 8 + 2 * watching);
        EXPECT_NE(page.find("20 learning frames"), std::string::npos);
    }
}

TEST(InspectRun, WritesDumpsOfASingleBackgroundAndATrace) {
    TempDir dir;
    const std::string stream = dir.write("in.stream", sceneStream({32, 24, 30, 5, 1, 0, 2}));
    const Outcome tool = runTool({stream, "--background", "single", "--bgframes", "2", "--frames", "12,14", "--dumps",
                                  "--trace", "-q", "-o", dir.path + "/a/b"});
    EXPECT_EQ(tool.status, 0);
    EXPECT_EQ(tool.err, "");
    EXPECT_EQ(std::count(tool.out.begin(), tool.out.end(), 'B') > 0, true) << tool.out;
    const int cells = 6 * 8 + 5 * 7;
    for (const char* name : {"edges.txt", "derivatives.txt"}) {
        const std::string text = slurp(dir.path + "/a/b/frame-000014-" + name);
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), cells) << name;
    }
    EXPECT_TRUE(slurp(dir.path + "/a/b/frame-000012-background.pgm").starts_with("P2\n32 24\n255\n"));
}

// What the page tells of tracks is what the host's filter makes of the analyzer's own replies, told apart from it here.
TEST(InspectTracks, AreThoseOfTheFilter) {
    namespace fh = fleifeisa::host;
    EXPECT_EQ(fi::parseTimestamp(" 12.25"), 12'250'000'000);
    EXPECT_EQ(fi::parseTimestamp("7.0000000019"), 7'000'000'001);
    for (const char* none : {"", " ", "x", "1.5x", "-1", "99999999999999999999"})
        EXPECT_EQ(fi::parseTimestamp(none), std::nullopt) << none;

    // A bright box walks to the right. What had stood below it while the background was learnt has gone.
    fi::Settings settings;
    settings.parameters.bg_frames = 20;
    fi::Session session(settings), plain(settings);
    fi::TrackStage stage(settings);
    fh::TrackFilter filter({}, 20);
    TempDir dir;
    std::set<std::string> states;
    std::set<fh::Drop> drops;
    for (int number = 1; number <= 60; number++) {
        const auto colour = [&](int r, int c) {
            const int left = 4 + 2 * (number - 24);
            if (number >= 24 && r >= 20 && r < 44 && c >= left && c < left + 14) return ColorValue{230, 220, 40};
            if (number <= 21 && r >= 48 && r < 64 && c >= 4 && c < 24) return ColorValue{20, 30, 160};
            const int noise = (r * 31 + c * 17 + number * 7) % 5;
            return ColorValue{80 + noise, 90 + noise, 100 + noise};
        };
        TestImage one(72, 96, colour), other(72, 96, colour);
        const std::vector<std::uint8_t> rgb(one.image.rawsrc, one.image.rawsrc + 72 * 96 * 3);
        fi::SourceFrame source;
        source.timestamp = " " + std::to_string(100 + number / 10) + "." + std::to_string(number % 10);
        const Phase phase = session.begin(one.image);
        one.image.Detach();
        stage.frame(session, source, true);
        plain.begin(other.image);
        other.image.Detach();
        const fh::Reply reply = fh::parseReply(plain.answer());
        const fh::TrackFrame expected =
            filter.frame({100'000'000'000 + number * 100'000'000LL, 96, 72, rgb, reply.detection, reply.objects});
        fi::FrameFacts facts = fi::gatherFacts(session, phase, source);
        stage.gather(facts);
        ASSERT_EQ(facts.tracks.size(), expected.tracks.size()) << number;
        EXPECT_EQ(facts.scene, fh::nameOf(expected.scene)) << number;
        double foreground = 0;
        for (const fh::Blob& blob : stage.view().blobs) foreground += blob.pixels / (72.0 * 96);
        EXPECT_EQ(foreground, expected.foreground) << number;
        for (std::size_t i = 0; i < facts.tracks.size(); i++) {
            const fi::TrackFacts& f = facts.tracks[i];
            const fh::Track& t = expected.tracks[i];
            EXPECT_EQ(f.number, t.number) << number;
            EXPECT_EQ(f.state, fh::nameOf(t.state)) << number;
            EXPECT_EQ((fh::Box{f.x, f.y, f.width, f.height}), t.box) << number;
            EXPECT_EQ(f.frames, t.frames) << number;
            EXPECT_EQ(f.area, t.area) << number;
            if (t.state != fh::TrackState::kEnded) {
                EXPECT_NEAR(f.missed, static_cast<double>(expected.time_ns - t.seen_ns) / 1e9, 1e-6) << number;
            }
            if (t.number == 0) {
                EXPECT_NE(f.why, "") << number;
            }
            states.insert(f.state);
        }
        for (const fh::DroppedComponent& d : stage.view().dropped) drops.insert(d.why);
        if (number == 40) {
            std::map<std::string, fi::Raster> pictures;
            for (fi::Picture& p : fi::drawTrackPictures(session, stage, 1))
                pictures.emplace(p.name, std::move(p.image));
            ASSERT_EQ(pictures.size(), 3u);
            EXPECT_EQ(pictures.at("refiner").at(43, 30), (fleifeisa::Rgb{64, 196, 255}));  // the box
            EXPECT_LT(pictures.at("refiner").at(90, 66).red, 30);                          // not looked at
            EXPECT_NEAR(pictures.at("refiner-background").at(43, 30).blue, 102, 3);
            ASSERT_EQ(facts.tracks.size(), 1u);
            const fi::TrackFacts& f = facts.tracks[0];
            EXPECT_EQ(pictures.at("tracks").at(f.x + f.width - 1, f.y + f.height - 1), fi::distinct(1));
            fi::Page page("in", settings);
            page.add(facts, {}, {});
            page.write(dir.path + "/page");
            const std::string html = slurp(dir.path + "/page");
            EXPECT_NE(html.find("</span>1</td><td>confirmed</td><td>" + std::to_string(f.x) + "</td>"),
                      std::string::npos);
            EXPECT_NE(html.find("Least area</dt><dd>3.5<"), std::string::npos);
        }
        session.end();
        plain.end();
    }
    EXPECT_TRUE(drops.contains(fh::Drop::kGhost));
    EXPECT_TRUE(states.contains("tentative") && states.contains("confirmed"));
}

// One bright box before a dark ground: rows 8 to 11, columns 16 to 27.
TEST(InspectPictures, AreInTheRightPlaces) {
    fi::Settings settings;
    settings.background = SINGLE;
    settings.parameters.bg_frames = 1;
    fi::Session session(settings);
    const auto feed = [&](bool box) {
        TestImage image(24, 32, [box](int r, int c) {
            return box && r >= 8 && r <= 11 && c >= 16 && c <= 27 ? ColorValue{250, 240, 230} : ColorValue{10, 20, 30};
        });
        const Phase phase = session.begin(image.image);
        image.image.Detach();
        return phase;
    };
    EXPECT_EQ(feed(false), Phase::kFirst);
    session.end();
    const Phase phase = feed(true);
    ASSERT_EQ(phase, Phase::kDetection);
    const fi::FrameFacts facts = fi::gatherFacts(session, phase, {});
    ASSERT_EQ(facts.objects.size(), 1u);
    fi::Page page("in", settings);
    page.add(facts, {}, {});
    TempDir dir;
    page.write(dir.path + "/page");
    const std::string html = slurp(dir.path + "/page");
    // Cells of four pixels, 6 x 8 and between them 5 x 7. The record is a cell wider at either side, half of one right.
    for (const char* shown :
         {"</span>1</td><td>1</td><td>12</td><td>4</td><td>18</td><td>12</td><td>208</td><td>96 %</td>"
          "<td>20, 10</td><td>20</td><td>1</td><td>11</td><td>6</td><td>new</td></tr>",
          "Foreground cells</dt><dd>20<", "Cells</dt><dd>83 (48 + 35)<", "Frame size</dt><dd>32 x 24<"})
        EXPECT_NE(html.find(shown), std::string::npos) << shown;
    EXPECT_EQ(facts.components, 1);
    EXPECT_GE(facts.objects[0].corners(), 4);

    std::map<std::string, fi::Raster> pictures;
    for (fi::Picture& p : fi::drawPictures(session, facts, 4)) pictures.emplace(p.name, std::move(p.image));
    const auto at = [&](const char* name, int r, int c) { return pictures.at(name).at(c * 4 + 2, r * 4 + 2); };
    EXPECT_EQ(at("objects", 10, 20), (fleifeisa::Rgb{250, 240, 230}));
    EXPECT_EQ(at("objects", 2, 30), (fleifeisa::Rgb{10, 20, 30}));
    EXPECT_EQ(pictures.at("objects").at(12 * 4, 16 * 4 - 1), fi::distinct(1));  // a corner of the box
    EXPECT_EQ(at("background", 10, 20), (fleifeisa::Rgb{10, 20, 30}));
    EXPECT_EQ(at("difference", 10, 20), fi::heatMap().back());
    EXPECT_EQ(at("difference", 22, 30), fi::heatMap().front());
    EXPECT_EQ(at("confidence", 9, 17), fi::heatMap().back());
    EXPECT_EQ(at("derivative", 22, 30), fi::heatMap().front());
    EXPECT_EQ(at("labels", 9, 17), fi::distinct(1));
    EXPECT_EQ(pictures.count("clusters"), 0u);

    // The file holds the same pixels.
    const fi::Raster& written = pictures.at("labels");
    written.writePng(dir.path + "/labels.png");
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_file(&image, (dir.path + "/labels.png").c_str()));
    image.format = PNG_FORMAT_RGB;
    std::vector<fleifeisa::Rgb> pixels(PNG_IMAGE_SIZE(image) / 3);
    ASSERT_TRUE(png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr));
    ASSERT_EQ(image.width, 128u);
    EXPECT_EQ(pixels[static_cast<std::size_t>(9 * 4 * 128 + 17 * 4)], fi::distinct(1));
    EXPECT_THROW(written.writePng(dir.path + "/missing/labels.png"), std::runtime_error);
}

TEST(InspectRun, SaysWhatIsWrong) {
    TempDir dir;
    const std::string whole = sceneStream({32, 24, 10, 5, 1, 0, 2});
    const std::string stream = dir.write("in.stream", whole);
    const std::string cut = dir.write("cut.stream", whole.substr(0, whole.size() / 2 - 500));
    const std::string empty = dir.write("empty", ""), text = dir.write("text", "no image\n");
    const std::string bare = dir.write("bare.stream", kShutdownMessage), taken = dir.write("taken", "");
    const std::string out = dir.path + "/out";
    struct Row {
        std::vector<std::string> args;
        int status;
        const char* says;
    };
    for (const Row& r :
         {Row{{}, 64, "no input given"}, Row{{stream, "--frames", "5-3", "-o", out}, 64, "ends before it begins"},
          Row{{stream, "--type", "color", "-o", out}, 64, "COLOR"},
          Row{{stream, stream, "-o", out}, 64, "only one request stream"},
          Row{{stream, "--list", text}, 64, "instead of an input"},
          Row{{dir.path + "/none", "-o", out}, 66, "no such file"}, Row{{dir.path, "-o", out}, 66, "is not a file"},
          Row{{stream, "--control", dir.path + "/none", "-o", out}, 66, "cannot be opened"},
          Row{{"--list", empty, "-o", out}, 65, "names no image"}, Row{{text, "-o", out}, 65, "no frame has pixels"},
          Row{{bare, "-o", out}, 65, "holds no frame"}, Row{{stream, "-o", out}, 65, "--bgframes"},
          Row{{stream, "--frames", "11", "-o", out}, 65, "ends before the frames"},
          Row{{stream, "--frames", "9-11", "-o", out}, 0, "ends before frame 11"},
          Row{{stream, "-o", taken, "--frames", "2"}, 73, "cannot be created"},
          Row{{cut, "--frames", "2-", "-o", dir.path + "/cut"}, 65, "ends inside a message"}}) {
        const Outcome o = runTool(r.args);
        EXPECT_EQ(o.status, r.status) << r.says << ": " << o.err;
        EXPECT_NE(o.err.find(r.says), std::string::npos) << r.says << ": " << o.err;
    }
    EXPECT_TRUE(std::filesystem::exists(dir.path + "/cut/index.html"));  // what came before the cut is shown
    EXPECT_NE(runTool({"--version"}).out.find("image formats: "), std::string::npos);
}

}  // namespace
