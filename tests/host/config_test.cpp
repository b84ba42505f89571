// The configuration: text to settings, every key; faults with line and key.
#include "cli/config.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>

namespace fleifeisa::host {
namespace {

// In a directory that does not exist: nothing but the text is looked at.
constexpr const char* kPath = "/nowhere/conf/cameras.toml";

CameraConfig plain() {
    CameraConfig camera;
    camera.name = "gate";
    camera.source.source = "/nowhere/conf/gate.avi";
    camera.source.decoder_threads = 1;
    camera.analyzer.device = 7;
    camera.service = true;
    return camera;
}

const std::string kPlain = "[[camera]]\nname = 'gate'\nsource = 'gate.avi'\ndevice = 7\n";

TEST(Config, EveryKeyOfACamera) {
    const struct {
        std::string line;
        std::function<void(CameraConfig&)> expected;
    } rows[] = {
        {"", [](auto&) {}},
        {"title = 'Tor \xC3\xA4 ~41'", [](auto& c) { c.title = "Tor \xC3\xA4 ~41"; }},
        {"analyzer = 3", [](auto& c) { c.analyzer.analyzer_id = 3; }},
        {"type = 'ir'", [](auto& c) { c.analyzer.infrared = true; }},
        {"type = 'COLOR'", [](auto&) {}},
        {"type = 'auto'", [](auto& c) { c.type_by_picture = true; }},
        {"seamless = false\nwarm_up = 12", [](auto& c) { c.seamless = false, c.warm_up = 12; }},
        {"rate = 12.5", [](auto& c) { c.source.rate = 12.5; }},
        {"rate = 5", [](auto& c) { c.source.rate = 5; }},
        {"rate = 5\nidle_rate = 0.5",
         [](auto& c) {
             c.source.rate = 5;
             c.source.idle_rate = 0.5;
         }},
        {"size = '640x360'", [](auto& c) { c.source.width = 640, c.source.height = 360; }},
        {"region = '960x540+1+100'",
         [](auto& c) {
             c.source.region = Region{1, 100, 960, 540};
         }},
        {"matrix = 'bt601'", [](auto& c) { c.source.matrix = Matrix::kBt601; }},
        {"matrix = 'bt709'", [](auto& c) { c.source.matrix = Matrix::kBt709; }},
        {"matrix = 'bt2020'", [](auto& c) { c.source.matrix = Matrix::kBt2020; }},
        {"range = 'full'", [](auto& c) { c.source.full_range = true; }},
        {"range = 'limited'", [](auto& c) { c.source.full_range = false; }},
        {"live = true", [](auto& c) { c.source.live = true; }},
        {"live = false", [](auto& c) { c.source.live = false; }},
        {"loop = true", [](auto& c) { c.source.loop = true; }},
        {"realtime = true", [](auto& c) { c.source.realtime = true; }},
        {"redirects = true", [](auto& c) { c.source.redirects = true; }},
        {"credentials = 'gate.key'", [](auto& c) { c.source.credentials = "/nowhere/conf/gate.key"; }},
        {"credentials = 'env:GATE'", [](auto& c) { c.source.credentials = "env:GATE"; }},
        {"start_time = '1970-01-02T00:00:00Z'", [](auto& c) { c.source.start_time_ns = 86'400'000'000'000; }},
        {"stall_timeout = 2.5", [](auto& c) { c.source.stall_seconds = 2.5; }},
        {"answer_timeout = 4", [](auto& c) { c.answer_seconds = 4; }},
        {"decoder_threads = 0", [](auto& c) { c.source.decoder_threads = 0; }},
        {"ffmpeg_options = ['-re', '-r', '5']",
         [](auto& c) {
             c.source.ffmpeg_input_options = {"-re", "-r", "5"};
         }},
        {"control = { bgframes = 9, color_low = 0.25, color_high = 1, ir_low = 1e-2, ir_high = 2.5 }",
         [](auto& c) {
             c.control = {"9", "0.25", "1", "0.01", "2.5"};
         }},
        {"tracks = 'raw'", [](auto& c) { c.raw_tracks = true; }},
        {"least_area = 0.25\nshadow_test = false\nsplit_people = true",
         [](auto& c) { c.filter = {.least_area = 0.25, .shadow_test = false, .split_people = true}; }},
        {"masks = [[[0, 0.5], [1, 0], [1, 1.0]], [[0,0],[0,1],[1,0]]]",
         [](auto& c) {
             c.source.masks = {{{0, 0.5}, {1, 0}, {1, 1}}, {{0, 0}, {0, 1}, {1, 0}}};
         }},
        {"keep = { clips = '2 GB', clip_days = 3, event_days = 4, pictures = false }",
         [](auto& c) {
             c.keep = {2'000'000'000, 3, 4};
             c.pictures = false;
         }},
        {"private = [[[0,0],[0,1],[1,0]]]",
         [](auto& c) {
             c.source.private_areas = {{{0, 0}, {0, 1}, {1, 0}}};
         }},
        {"profile = 'people-outdoor'",
         [](auto& c) {
             c.profile = "people-outdoor";
             c.source.longest_side = 384;
             c.control = {"300", "1.0", "2.0", {}, {}};
             c.filter = {.least_area = 5e-4, .shadow_test = true, .split_people = true};
         }},
        {"profile = 'thermal'",
         [](auto& c) {
             c.profile = "thermal";
             c.source.longest_side = 384;
             c.analyzer.infrared = true;
             c.control = {"100", {}, {}, "1.0", "2.0"};
             c.filter.shadow_test = false;
         }},
        // What is said comes first, wherever it stands.
        {"split_people = false\nprofile = 'people-outdoor'\nsize = '640x360'\ntype = 'ir'\ncontrol = { ir_low = 0.5 }",
         [](auto& c) {
             c.profile = "people-outdoor";
             c.source.width = 640, c.source.height = 360;
             c.analyzer.infrared = true;
             c.control = {"300", {}, {}, "0.5", "2.0"};
         }},
        {"size = '256'", [](auto& c) { c.source.longest_side = 256; }},
        {"profile = 'indoor'\nsize = 'full'",
         [](auto& c) {
             c.profile = "indoor";
             c.source.longest_side = 16384;
             c.control = {"300", "1.0", "2.0", {}, {}};
             c.filter.shadow_test = false;
         }},
        {"rotate = { size = '3 kB', hours = 0.5, keep = 7 }\noutputs = ['replies=/r.txt']",
         [](auto& c) {
             c.outputs = {{"replies", "/r.txt", {.rotation = {3000, 1800, 7}}}};
         }},
        {"outputs = ['jsonl', 'mot=m.csv', 'replies=/r.txt']",
         [](auto& c) {
             c.outputs = {{"jsonl", "/nowhere/conf/out/gate/frames.jsonl"},
                          {"mot", "/nowhere/conf/m.csv"},
                          {"replies", "/r.txt"}};
         }},
        {"notify = false", [](auto& c) { c.notify_from_ns = CameraConfig::kNever; }},
        {"notify = '2026-01-01T09:30:00+02:00'", [](auto& c) { c.notify_from_ns = 1'767'252'600'000'000'000; }},
        {"stopped = 7\n[camera.motion]\noff_delay = 9\n[[camera.line]]\nname = 'x'\npoints = [[0,0],[1,1]]",
         [](auto& c) {
             c.rules.stopped = 7;
             c.rules.off_delay = 9;
             c.rules.lines.push_back({"x", "", {0, 0}, {1, 1}, {}});
         }},
    };
    for (const auto& row : rows) {
        std::vector<std::string> errors;
        const HostConfig config = parseConfig(kPlain + row.line + "\n", kPath, errors);
        EXPECT_TRUE(errors.empty()) << row.line << ": " << errors.front();
        CameraConfig expected = plain();
        row.expected(expected);
        ASSERT_EQ(config.cameras.size(), 1u);
        EXPECT_TRUE(config.cameras[0] == expected) << row.line;
    }
}

TEST(Config, PathsAndTopLevelKeys) {
    const struct {
        const char *top, *source, *analyzer, *root, *resolved, *output;
    } rows[] = {
        {"", "scene:street?seed=1", "", "", "scene:street?seed=1", "/nowhere/conf/out/gate/replies.txt"},
        {"analyzer = 'fleifeisa'", "list:a/b.txt", "fleifeisa", "", "list:/nowhere/conf/a/b.txt",
         "/nowhere/conf/out/gate/replies.txt"},
        {"analyzer = './x'\nroot = '../r'\noutputs = '/o'", "../a.avi", "/nowhere/conf/x", "/nowhere/r",
         "/nowhere/a.avi", "/o/gate/replies.txt"},
        {"root = '/r'\noutputs = 'x'", "rtsp://h/s", "", "/r", "rtsp://h/s", "/nowhere/conf/x/gate/replies.txt"},
    };
    for (const auto& row : rows) {
        std::vector<std::string> errors;
        const HostConfig config = parseConfig(
            std::string(row.top) + "\n[[camera]]\nname = 'gate'\ndevice = 0\noutputs = ['replies']\nsource = '" +
                row.source + "'\n",
            kPath, errors);
        ASSERT_TRUE(errors.empty()) << errors.front();
        EXPECT_EQ(config.analyzer, row.analyzer);
        EXPECT_EQ(config.cameras.at(0).analyzer.root, row.root);
        EXPECT_EQ(config.cameras.at(0).source.source, row.resolved);
        EXPECT_EQ(config.cameras.at(0).outputs.at(0).path, row.output);
    }
}

TEST(Config, WhatConcernsEventsOfAllCameras) {
    std::vector<std::string> errors;
    const HostConfig config = parseConfig(
        "state = 's'\ntimezone = 'Europe/Berlin'\nnotify = false\non_event = ['sh', '{kind}']\n"
        "[keep]\nevent_days = 3\nminute_days = 4\nnear_miss_days = 5\ndatabase = '2 GB'\nmin_free = '1 MB'\n"
        "media = '3 GB'\nkept = '4 MB'\n" +
            kPlain + "[[camera.zone]]\nname = 'z'\nwhen = '08:00-09:00'\npoints = [[0,0],[1,0],[1,1]]\n",
        kPath, errors);
    ASSERT_TRUE(errors.empty()) << errors.front();
    EXPECT_TRUE((config.desk == DeskSettings{"/nowhere/conf/s",
                                             {3, 4, 5, 2'000'000'000, 3'000'000'000, 4'000'000, 1'000'000},
                                             {"sh", "{kind}"}}));
    EXPECT_EQ(config.cameras.at(0).notify_from_ns, CameraConfig::kNever);
    const Rules& rules = config.cameras.at(0).rules;
    EXPECT_EQ(rules.timezone, "Europe/Berlin");
    constexpr std::int64_t kHalfPastSevenUtc = 1'767'252'600'000'000'000;  // 1 January 2026, half past eight in Berlin
    EXPECT_TRUE(rules.zones.at(0).limits.when.active(kHalfPastSevenUtc));
}

TEST(Config, FaultsNameLineAndKey) {
    const std::pair<std::string, const char*> rows[] = {
        {"", ":1: camera: expected at least one"},
        {"camera = 3", ":1: camera: expected at least one"},
        {"rooot = 1\n" + kPlain, ":1: rooot: unknown key (did you mean root?)"},
        {"zzzzzzz = 1\n" + kPlain, ":1: zzzzzzz: unknown key"},
        {"analyzer = 1\n" + kPlain, ":1: analyzer: expected a text"},
        {"[[camera]]\nname = 'a\n", ":2: "},
        {"# \xC3\xA4 ' \n" + kPlain + "title = \"\xC3\xA4\\\"\"\nname \xC7\xBD = '\xC3\xA4'\n", ":7: "},
        {"name =0\"; \xC5\xBF\"\n" + kPlain, ":1: "},
        {"names = 'x[[\"\"\"\xD0\x9A = '\n" + kPlain, ":1: "},
        {kPlain + "title\xC7\xBD = '\xC3\xA4'\n",
         ":5: Error while parsing key-value pair: expected '=', saw '~'; characters beyond ASCII stand within quotes "
         "only"},
        {kPlain + "\ntitle = '\xC3'\n", ":6: this is not UTF-8"},
        {kPlain + "[[camera]]\nname = 'gate'\nsource = 'b'\ndevice = 8\n",
         ":6: camera[2].name: another camera has the name 'gate'"},
        {kPlain + "[[camera]]\nname = 'b'\nsource = 'b'\ndevice = 7\n",
         ":8: camera[2].device: another camera has device 7"},
        {"[[camera]]\nname = 'b'\ndevice = 7\n", ":1: camera[1].source: every camera needs"},
        {"[[camera]]\nname = 'b'\nsource = 'b'\n", ":1: camera[1].device: every camera needs"},
        {"[[camera]]\nname = 'a b'\nsource = 'b'\ndevice = 1\n",
         ":2: camera[1].name: every camera needs a name of 1 to 64"},
        {"[[camera]]\nname = 'a'\nsource = 'rtps://h'\ndevice = 1\n", ":3: camera[1].source: unknown protocol 'rtps'"},
        {"[[camera]]\nname = 'a'\nsource = 'http://h:x/'\ndevice = 1\n", ":3: camera[1].source: malformed URL"},
        {"[[camera]]\nname = 'a'\nsource = 'scene:moon'\ndevice = 1\n", ":3: camera[1].source: "},
        {"[[camera]]\nname = 'a'\nsource = 'scene:street?size=96x64'\ndevice = 1\nregion = '96x64+0+1'\n",
         ":3: camera[1].source: the region 96x64+0+1 leaves the picture of 96x64"},
        {kPlain + "type = 'infra'", ":5: camera[1].type: expected color, ir or auto"},
        {kPlain + "profile = 'people'", ":5: camera[1].profile: expected one of people-outdoor, traffic"},
        {kPlain + "tracks = 'wild'", ":5: camera[1].tracks: expected filtered or raw"},
        {kPlain + "least_area = 1.5", ":5: camera[1].least_area: expected a number from 0 to 1"},
        {kPlain + "masks = [[0, 0]]", ":5: camera[1].masks: expected a list of polygons"},
        {kPlain + "masks = [[[0,0],[1,0],[1,1]],\n [[0,0],[1,0]]]", ":6: camera[1].masks: expected at least 3"},
        {kPlain + "masks = [[[0,0],[1,1],[1,0],[0,1]]]", ":5: camera[1].masks: its edges cross"},
        {kPlain + "masks = [[[0,0],[1.01,0],[1,1]]]", ":5: camera[1].masks: expected points within"},
        {kPlain + "private = [[[0,0],[1,1]]]", ":5: camera[1].private: expected at least 3"},
        {kPlain + "masks = [[[0,0],[nan,0],[1,1]]]", ":5: camera[1].masks: expected points within"},
        {kPlain + "size = '320x'", ":5: camera[1].size: expected WIDTHxHEIGHT"},
        {kPlain + "region = '320x240'", ":5: camera[1].region: expected"},
        {kPlain + "rate = 'x'", ":5: camera[1].rate: expected a number from 0 to 1000"},
        {kPlain + "rate = -1", ":5: camera[1].rate: expected a number"},
        {kPlain + "idle_rate = 0.01", ":5: camera[1].idle_rate: expected a number from 0.5 to 1000"},
        {kPlain + "rate = 2\nidle_rate = 2", ":6: camera[1].idle_rate: an idle rate is lower than the rate"},
        {kPlain + "rate = nan", ":5: camera[1].rate: expected a number"},
        {kPlain + "live = 1", ":5: camera[1].live: expected true or false"},
        {kPlain + "stall_timeout = 0", ":5: camera[1].stall_timeout: expected a number"},
        {kPlain + "answer_timeout = 1e9", ":5: camera[1].answer_timeout: expected a number"},
        {kPlain + "decoder_threads = 65", ":5: camera[1].decoder_threads: expected a whole number from 0 to 64"},
        {kPlain + "analyzer = 2147483648", ":5: camera[1].analyzer: expected a whole number"},
        {kPlain + "matrix = 'x'", ":5: camera[1].matrix: expected bt601"},
        {kPlain + "range = 'x'", ":5: camera[1].range: expected full"},
        {kPlain + "start_time = 'noon'", ":5: camera[1].start_time: expected a date and time"},
        {kPlain + "ffmpeg_options = '-re'", ":5: camera[1].ffmpeg_options: expected a list"},
        {kPlain + "outputs = ['smoke']", ":5: camera[1].outputs: there is no output 'smoke'"},
        {kPlain + "control = 3", ":5: camera[1].control: expected a table"},
        {kPlain + "[camera.control]\nbgframes = 0", ":6: camera[1].control.bgframes: expected a whole number"},
        {kPlain + "control = { ir_low = -1 }", ":5: camera[1].control.ir_low: expected a number"},
        {"timezone = 'Mars'\n" + kPlain, ":1: timezone: "},
        {"on_event = ['/nowhere/x']\n" + kPlain, ":1: on_event: there is no program '/nowhere/x'"},
        {"[keep]\nevent_day = 3\n" + kPlain, ":2: keep.event_day: unknown key (did you mean event_days?)"},
        {"[keep]\nmin_free = 'x'\n" + kPlain, ":2: keep.min_free: expected a size"},
        {kPlain + "[[camera.zone]]\nname = 'z'\npoints = [[0,0],[1,1]]",
         ":7: camera[1].zone[1].points: expected at least 3 points"},
        {kPlain + "[[camera.line]]\nname = 'z'\nwhen = 'noon'\npoints = [[0,0],[1,1]]", ":7: camera[1].line[1].when: "},
        {kPlain + "control = { ir_lo = 1 }", ":5: camera[1].control.ir_lo: unknown key (did you mean ir_low?)"},
    };
    for (const auto& [text, words] : rows) {
        std::vector<std::string> errors;
        parseConfig(text, kPath, errors);
        ASSERT_EQ(errors.size(), 1u) << text;
        EXPECT_TRUE(errors[0].starts_with(kPath + std::string(words))) << errors[0];
    }
    std::vector<std::string> errors;
    parseConfig("x = 1\n[[camera]]\ny = 1\n", kPath, errors);
    EXPECT_EQ(errors.size(), 5u);  // all of them, in the order of their lines
    EXPECT_TRUE(errors.at(0).starts_with(kPath + std::string(":1: x")) &&
                errors.at(4).starts_with(kPath + std::string(":3: ")));
}

TEST(Config, ALookAtTheWorldFindsWhatIsMissing) {
    const std::pair<std::string, const char*> rows[] = {
        {kPlain + "outputs = ['jsonl']", "camera[1].source: /nowhere/conf/gate.avi: No such file"},
        {"[[camera]]\nname = 'a'\nsource = 'scene:street'\ndevice = 1\n",
         "camera[1].outputs: the camera has no output"},
        {"[[camera]]\nname = 'a'\nsource = 'scene:street'\ndevice = 1\noutputs = []\n",
         "camera[1].outputs: the camera has no output"},
        {"[[camera]]\nname = 'a'\nsource = 'list:x'\ndevice = 1\noutputs = ['mot']\n",
         "camera[1].source: /nowhere/conf/x: No such file"},
        {"[[camera]]\nname = 'a'\nsource = 'rtsp://h/'\ncredentials = 'k'\ndevice = 1\noutputs = ['mot']\n",
         "/nowhere/conf/k: No such file"},
        {"[[camera]]\nname = 'a'\nsource = 'rtsp://h/'\ndevice = 1\noutputs = ['mot']\n", ""},
    };
    for (const auto& [text, words] : rows) {
        std::vector<std::string> errors;
        parseConfig(text, kPath, errors, ConfigCheck::kWorld);
        ASSERT_EQ(errors.size(), *words ? 1u : 0u) << text << (errors.empty() ? "" : errors.back());
        EXPECT_NE((errors.empty() ? "" : errors[0]).find(words), std::string::npos) << errors[0];
    }
    std::vector<std::string> errors;
    loadConfig("/nowhere/conf/x.toml", errors);
    EXPECT_EQ(errors, std::vector<std::string>{"/nowhere/conf/x.toml: No such file or directory"});
}

}  // namespace
}  // namespace fleifeisa::host
