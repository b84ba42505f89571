#include "host/output_runs.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include "camera/output_types.h"
#include "common/text.h"
#include "tracks/raw_tracks.h"

namespace fleifeisa::host::test {
namespace {

/// Grey ground with a bright patch where an object is.
std::vector<std::uint8_t> pixels(const Frame& frame) {
    std::vector<std::uint8_t> rgb(static_cast<std::size_t>(frame.width) * static_cast<std::size_t>(frame.height) * 3,
                                  90);
    for (const AnalyzerObject& o : frame.objects)
        for (int y = std::max(0, o.top); y < std::min(frame.height, o.top + o.height); ++y)
            for (int x = std::max(0, o.left); x < std::min(frame.width, o.left + o.width); ++x)
                rgb[static_cast<std::size_t>((y * frame.width + x) * 3 + o.id % 3)] = 230;
    return rgb;
}

/// What an analyzer answers, as docs/protocol.md has it.
std::string replyTo(const Frame& frame, const std::string& time, const std::string& sequence) {
    std::string reply = "ANALYTICS.CARTRIDGE\r\nStatus: OK\r\n", body;
    for (const AnalyzerObject& o : frame.objects) {
        if (body.empty())
            body = "<ANALYTICS>\n<FRAME DEVID=\"1\" TIMESTAMP=\" " + time + "\" SEQ=\"" + sequence +
                   "\"/>\n<TRACKING ANALYZERID=\"1\">";
        body += "<OBJECT OID=\"1.1." + std::to_string(o.id) + "\">\n<BOX X=\"" + std::to_string(o.left + o.width / 2) +
                "\" Y=\"" + std::to_string(o.top + o.height / 2) + "\" W=\"" + std::to_string(o.width) + "\" H=\"" +
                std::to_string(o.height) + "\" DENS=\"" + std::to_string(o.density) +
                "\"/>\n<SHAPE>\n</SHAPE>\n</OBJECT>";
    }
    if (!body.empty()) {
        body += "</TRACKING>\n</ANALYTICS>\n";
        reply += "Content-Length: " + std::to_string(body.size()) + "\r\nContent-Type: text/xml \r\n";
    }
    return reply + "Timestamp: " + time + "\r\nSequence-Number:" + (frame.detection ? " " : "") + sequence +
           "\r\n\r\n" + body;
}

}  // namespace

Scenario followed(Scenario run) {
    run.camera.tracks.raw = true;
    RawTracks raw;
    for (std::size_t i = 0; i < run.frames.size(); ++i) {
        Frame& frame = run.frames[i];
        if (frame.restart) raw.analyzerRestarted();
        const TrackFrame found = raw.frame({run.first_ns + static_cast<std::int64_t>(i) * run.step_ns,
                                            frame.width,
                                            frame.height,
                                            {},
                                            frame.detection,
                                            frame.objects});
        frame.tracks.assign(found.tracks.begin(), found.tracks.end());
        frame.foreground = found.foreground;
    }
    const TrackFrame last = raw.end(TrackEnd::kSource);
    run.ended.assign(last.tracks.begin(), last.tracks.end());
    return run;
}

void feed(Output& output, const Scenario& run, std::size_t index) {
    const Frame& frame = run.frames[index];
    if (index == 0 || frame.restart) {
        CameraInfo camera = run.camera;
        camera.fresh_tracks = index == 0;
        output.started(camera);
    }
    const std::vector<std::uint8_t> rgb = pixels(frame);
    const std::string number = std::to_string(index + 1);
    FrameResult result;
    result.camera = run.camera.name;
    result.sequence = static_cast<std::int64_t>(index) + 1;
    result.time_ns = run.first_ns + static_cast<std::int64_t>(index) * run.step_ns;
    result.live = result.realtime = run.camera.live;
    result.width = frame.width;
    result.height = frame.height;
    result.detection = frame.detection;
    result.objects = frame.objects;
    result.rgb = rgb;
    result.tracks.time_ns = result.time_ns;
    result.tracks.width = frame.width;
    result.tracks.height = frame.height;
    result.tracks.scene = frame.detection ? SceneState::kWatching : SceneState::kLearning;
    result.tracks.tracks = frame.tracks;
    result.tracks.foreground = frame.foreground;
    const std::string time = fixedPoint(result.time_ns, 9);
    const std::string request =
        "ANALYTICS.CARTRIDGE\r\nContent-Type: image/rgb\r\nContent-Length: " + std::to_string(rgb.size()) +
        "\r\nImage-width: " + std::to_string(frame.width) + "\r\nImage-height: " + std::to_string(frame.height) +
        "\r\nTimestamp: " + time + "\r\nSequence-Number: " + number + "\r\n\r\n";
    const std::string reply = replyTo(frame, time, number);
    result.request = request;
    result.reply = reply;
    output.frame(result);
    CameraEvent event;
    event.camera = run.camera.name;
    event.number = result.sequence;
    output.told(event);
}

void end(Output& output, const Scenario& run) {
    TrackFrame last;
    last.tracks = run.ended;
    if (!run.frames.empty()) output.ended(last, TrackEnd::kSource);
    output.finish();
}

void play(const Scenario& run, const std::string& type, const std::string& path, const FilePolicy& policy) {
    const std::unique_ptr<Output> output = makeOutput({type, path, policy}, run.camera);
    for (std::size_t i = 0; i < run.frames.size(); ++i) feed(*output, run, i);
    end(*output, run);
}

Scenario documentedRun() {
    Scenario run;
    run.camera = {
        .name = "gate", .source = "gate.mp4", .rate = 10, .control = "<param name=\"-noisefactor\" value=\"30\"/>\n"};
    run.camera.tracks.learning_frames = 1;
    // Two walkers: the second comes out of the first one's blob, moves as one with it, and leaves over the left edge.
    Track one;
    one.number = 1;
    one.state = TrackState::kConfirmed;
    one.start_ns = 100'000'000;
    const auto at = [](Track track, int frame, const Box& box, Point velocity, std::vector<int> objects, int area) {
        track.seen_ns = frame * 100'000'000LL - 100'000'000;
        track.box = box;
        track.centre = {box.left + box.width / 2.0, box.top + box.height / 2.0};
        track.velocity = velocity;
        track.objects = std::move(objects);
        track.area = area;
        return track;
    };
    const auto grown = [](Track track, double path, int frames) {
        track.path_px = path;
        track.frames = frames;
        return track;
    };
    Track two = one;
    two.number = 2;
    two.start_ns = 200'000'000;
    two.split_from = 1;
    Track joined = grown(at(two, 3, {-6, 198, 18, 46}, {-21.5, 0}, {}, 0), 0, 1), gone = joined;
    joined.merged_with = 1;
    gone.state = TrackState::kEnded;
    gone.ended = TrackEnd::kLeft;
    Track last = grown(at(one, 5, {196, 98, 18, 17}, {812.5, -3.04}, {12}, 210), 165.37, 4), ended = last;
    ended.state = TrackState::kEnded;
    ended.ended = TrackEnd::kSource;
    run.frames = {
        {.detection = false, .width = 320, .height = 240},
        {.width = 320,
         .height = 240,
         .objects = {object(12, 40, 16, 24, 48, 61)},
         .tracks = {grown(at(one, 2, {38, 14, 28, 53}, {0, 0}, {12}, 742), 0, 1)},
         .foreground = 0.0097},
        {.width = 320,
         .height = 240,
         .objects = {object(12, 43, 20, 24, 48, 60), object(0, -4, 200, 20, 44, 35)},
         .tracks = {grown(at(one, 3, {41, 17, 28, 54}, {30, 30}, {12}, 735), 4.61, 2),
                    grown(at(two, 3, {-4, 198, 20, 46}, {-21.5, 0}, {0}, 301), 0, 1)},
         .foreground = 0.0135},
        {.restart = true,
         .detection = false,
         .width = 320,
         .height = 240,
         .tracks = {grown(at(one, 4, {45, 21, 28, 53}, {35, 35}, {}, 731), 9.7, 3), joined},
         .foreground = 0.0095},
        {.width = 320,
         .height = 240,
         .objects = {object(12, 200, 101, 10, 11, 50)},
         .tracks = {last, gone},
         .foreground = 0.0027},
    };
    run.ended = {ended};
    return run;
}

Scenario awkwardRun(std::uint32_t seed) {
    std::mt19937 random(seed);
    const auto draw = [&random](int from, int to) {
        return from + static_cast<int>(random() % static_cast<std::uint32_t>(to - from + 1));
    };
    Scenario run;
    run.camera = {
        .name = "a \"gate\" <&'\\> \xC3\xA4\xFF\n", .source = "rtsp://host/<1>&2", .live = true, .control = ""};
    run.first_ns = 1'709'164'799'876'543'210;  // 2024-02-28, a second before the leap day
    run.step_ns = 77'777'777;
    run.frames.resize(600);
    for (std::size_t i = 0; i < run.frames.size(); ++i) {
        Frame& frame = run.frames[i];
        frame.restart = i == 250 || i == 251;
        frame.detection = i >= 20 && (i < 250 || i > 270);
    }
    for (int walker = 0; walker < 60; ++walker) {
        const int ids[] = {1 + walker % 7, 99999, 99998, 1 + walker, 50000};
        const int id = ids[draw(0, 4)];
        int left = draw(-10, 60), top = draw(-10, 40);
        for (int i = draw(0, 560), steps = draw(1, 40); steps > 0 && i < 600;
             --steps, i += draw(0, 9) ? 1 : draw(24, 27)) {
            left += draw(-3, 3);
            top += draw(-3, 3);
            if (left + 12 <= 0 || top + 9 <= 0 || left >= 64 || top >= 48) break;
            Frame& frame = run.frames[static_cast<std::size_t>(i)];
            if (frame.detection) frame.objects.push_back(object(draw(0, 15) ? id : 0, left, top, 12, 9, draw(1, 100)));
        }
    }
    return followed(run);
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

bool exists(const std::string& path) {
    return std::filesystem::exists(path);
}

}  // namespace fleifeisa::host::test
