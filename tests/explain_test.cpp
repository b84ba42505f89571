// The analyzer that explains itself: the same replies whatever is asked, answers that say what the tracker holds, and
// an asker who cannot do harm. Runs of the process are in conformance.sh and hostile/.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "explain/asked_input.h"
#include "explain/explainer.h"
#include "host/MainLoop.h"
#include "host/Requests.h"
#include "inspect/facts.h"
#include "support/asker.h"
#include "support/process.h"
#include "support/protocol.h"
#include "support/scene.h"
#include "support/state_hash.h"

namespace {

namespace fe = fleifeisa::explain;
namespace fi = fleifeisa::inspect;
using Json = nlohmann::json;

const Scene kScene{64, 48, 90, 13, 5, 0, 1};

class Explain : public testing::Test {
 protected:
    // Between two frames: what waits is answered as it would be in front of the next read.
    std::vector<Asker::Answer> between(fe::Explainer& explainer) {
        explainer.waitFor(always_);
        return asker.take();
    }
    Json answerTo(fe::Explainer& explainer, const std::string& question) {
        EXPECT_TRUE(asker.send(question + '\n'));
        const auto answers = between(explainer);
        return answers.size() == 1 ? Json::parse(answers[0].json) : Json();
    }
    ~Explain() override { close(always_); }

    Asker asker;
    const int always_ = open("/dev/null", O_RDONLY | O_CLOEXEC);  // there is always something to read: its end
};

TEST_F(Explain, Questions) {
    struct Row {
        const char* line;
        const char* fault;  // a part of it, "": none
    };
    for (const Row& row : {Row{"1 0", ""},
                           Row{"7 12 cell 3 4 layer age object 5", ""},
                           Row{"4294967295 9", ""},
                           Row{"", "front"},
                           Row{"x 0", "front"},
                           Row{"-1 0", "front"},
                           Row{"4294967296 0", "front"},
                           Row{"1", "frame"},
                           Row{"1 -2", "frame"},
                           Row{"1  0", "frame"},
                           Row{"1 0 cell", "cell"},
                           Row{"1 0 cell 1", "cell"},
                           Row{"1 0 cell 1 -1", "cell"},
                           Row{"1 0 cell 1 2x", "cell"},
                           Row{"1 0 cell 1 99999999999", "cell"},
                           Row{"1 0 cell 1 2 cell 1 2", "cell"},
                           Row{"1 0 object", "object"},
                           Row{"1 0 layer", "layer"},
                           Row{"1 0 layer ages", "layer"},
                           Row{"1 0 layer age layer age", "layer"},
                           Row{"1 0 clusters", "expected cell"}}) {
        fe::Question question;
        const std::string fault = fe::parseQuestion(row.line, question);
        EXPECT_EQ(fault.empty(), *row.fault == '\0') << row.line << ": " << fault;
        EXPECT_NE(fault.find(row.fault), std::string::npos) << row.line << ": " << fault;
    }
    fe::Question question;
    fe::parseQuestion("7 12 cell 3 4 layer age object 5", question);
    EXPECT_EQ(question.id, 7u);
    EXPECT_EQ(question.frame, 12);
    EXPECT_EQ(question.at->x, 3);
    EXPECT_EQ(question.at->y, 4);
    EXPECT_EQ(question.object, 5);
    EXPECT_EQ(question.layer, fe::Layer::kAge);
}

// The state after every frame of the golden streams, with a question about everything at every frame and behind it.
TEST_F(Explain, AskedAtEveryFrameTheStateIsTheSame) {
    const std::pair<const char*, std::pair<Scene, ReplayOptions>> cases[] = {
        {"color-relearn-48x36", {{48, 36, 80, 11, 6, 0, 2}, {COLOR, 10, {{25, 10}, {45, 7}, {60, 1}}, nullptr}}},
        {"ir-levels-relearn-40x40", {{40, 40, 70, 11, 4, 3, 5}, {IR, 10, {{30, 8}, {50, 2}}, nullptr}}},
        {"color-odd-37x29", {{37, 29, 70, 11, 5, 0, 7}, {COLOR, 10, {{40, 6}}, nullptr}}},
        {"color-crowd-96x64", {{96, 64, 50, 11, 30, 0, 9}, {COLOR, 10, {{30, 4}}, nullptr}}},
    };
    constexpr const char* kLayers[] = {"difference", "confidence", "edges", "labels", "age"};
    for (const auto& one : cases) {
        const char* const name = one.first;
        const auto& run = one.second;
        Asker each;
        fe::Explainer explainer(each.there);
        ReplayOptions options = run.second;
        options.watch = &explainer;
        std::ifstream in(std::string(FLEIFEISA_SOURCE_DIR "/tests/cases/golden/") + name + ".txt");
        std::string expected;
        int compared = 0, updated = 0;
        replay(sceneStream(run.first), options, [&](const ReplayedFrame& frame) {
            ASSERT_TRUE(std::getline(in, expected)) << name;
            ASSERT_EQ(expected, goldenLine(frame)) << name << ": " << goldenDifference(expected, goldenLine(frame));
            const int at = frame.number;
            const std::string what = " cell " + std::to_string(at % run.first.width) + ' ' +
                                     std::to_string(at % run.first.height) + " object 1 layer " + kLayers[at % 5] +
                                     '\n';
            ASSERT_TRUE(each.send("1 0" + what));
            explainer.waitFor(always_);
            ASSERT_TRUE(each.send("2 " + std::to_string(at + 1) + what));
            explainer.waitFor(always_);
            for (const Asker::Answer& answer : each.take()) {
                const Json json = Json::parse(answer.json);
                if (json.value("background", "") == "compared") compared++;
                if (json.value("background", "") == "updated") updated++;
            }
        });
        EXPECT_GT(compared, 25) << name;
        EXPECT_GT(updated, 25) << name;
    }
}

// What the inspection tool sees in its pause between the two halves of a frame, of the cells around one pixel.
constexpr int kX = 31, kY = 23;
struct Seen {
    fi::FrameFacts facts;
    int red, green, blue;
    struct Cell {
        int index, label;
        double difference, confidence, edges;
        KsBackgroundCell background;
    };
    std::vector<Cell> cells;
};

std::vector<Seen> inspected(const std::string& stream, int learning) {
    fi::Settings settings;
    settings.parameters.bg_frames = learning;
    fi::Session session(settings);
    std::istringstream in(stream);
    std::ostringstream out;
    RequestReader reader(in, out);
    std::vector<Seen> seen;
    for (;;) {
        KsColorImage image;
        streamin message{};
        if (reader.Read(image, message) != RequestReader::kMessage || !HasPixels(image)) return seen;
        std::free(std::exchange(message.timestamp, nullptr));
        const Phase phase = session.begin(image);
        fi::SourceFrame source;
        Seen& frame = seen.emplace_back(Seen{
            fi::gatherFacts(session, phase, source), image.Red(kY, kX), image.Green(kY, kX), image.Blue(kY, kX), {}});
        const GridColorDiff& g = *session.tracker()->G;
        const BackgroundModel& b = *session.tracker()->B;
        for (const int k : {b.map1.At(kY, kX), b.map2.At(kY, kX)})
            frame.cells.push_back({k, g.label[k], g.diff[k], g.conf[k], g.der_conf[k], b.Look(k)});
        session.end();
    }
}

void compareObjects(const Json& answer, const std::vector<fi::ObjectFacts>& objects) {
    ASSERT_EQ(answer["objects"].size(), objects.size());
    for (std::size_t i = 0; i < objects.size(); i++) {
        const fi::ObjectFacts& o = objects[i];
        const Json& other = answer["objects"][i];
        EXPECT_EQ(other["id"], o.id);
        EXPECT_EQ(other["box"], Json({o.x, o.y, o.width, o.height}));
        EXPECT_EQ(other["area"], o.area);
        EXPECT_EQ(other["density"], o.density);
        EXPECT_EQ(other["frames"], o.frames);
        EXPECT_EQ(other["cells"], o.cells);
        if (o.id == 1) {
            EXPECT_EQ(answer["object"]["outline"].size(), o.contour.size());
        }
    }
}

void compareCell(const Json& answer, const Seen::Cell& cell) {
    EXPECT_EQ(answer["cell"], cell.index);
    EXPECT_EQ(answer["difference"], cell.difference);
    EXPECT_EQ(answer["confidence"], cell.confidence);
    EXPECT_EQ(answer["edges"], cell.edges);
    EXPECT_EQ(answer["label"], cell.label);
    EXPECT_EQ(answer["foreground"], cell.label != 0);
    Json clusters = Json::array();
    for (int i = 0; i < cell.background.nclusters; i++) {
        const ColorMean& mean = cell.background.clusters[i];
        clusters.push_back({{"mean", {mean.R, mean.G, mean.B}},
                            {"support", cell.background.support[i]},
                            {"counts", cell.background.support[i] > KsBackgroundCell::kMinSupport}});
    }
    EXPECT_EQ(answer["clusters"], clusters);
}

// The nearest cluster less the pixel is what the comparison left. @returns whether there was one
bool comparePixel(const Json& place, const Seen& seen) {
    EXPECT_EQ(place["pixel"], Json({seen.red, seen.green, seen.blue}));
    if (place["nearest"].is_null()) return false;
    int distance = 0;
    for (std::size_t c = 0; c < 3; c++) {
        const int d = place["pixel_difference"][c];
        EXPECT_EQ(place["nearest"]["mean"][c].get<int>() - place["pixel"][c].get<int>(), d);
        distance += d * d;
    }
    EXPECT_EQ(place["nearest"]["distance"], distance);
    return true;
}

// At the place of the pixel a layer shows the greater one of its two cells, in steps of full / 255.
void compareLayer(const Json& layer, const std::string& bytes, const Seen& seen) {
    const auto width = layer["width"].get<std::size_t>(), step = layer["step"].get<std::size_t>();
    ASSERT_EQ(bytes.size(), width * layer["height"].get<std::size_t>());
    const double full = layer["full"];
    const double most = std::min(full, std::max(seen.cells[0].difference, seen.cells[1].difference));
    const auto shown = static_cast<std::uint8_t>(bytes[kY / step * width + kX / step]);
    EXPECT_NEAR(shown / 255.0 * full, most, full / 509);
}

TEST_F(Explain, AnswersAreWhatTheInspectionToolSees) {
    const std::string stream = sceneStream(kScene);
    const std::vector<Seen> seen = inspected(stream, 12);  // before: both draw from the process's generator
    fe::Explainer explainer(asker.there);
    const auto ask = [&](int frame) {
        ASSERT_TRUE(asker.send("5 " + std::to_string(frame) + " cell 31 23 layer difference object 1\n"));
        explainer.waitFor(always_);
    };
    ask(1);
    int objects = 0, foreground = 0, nearest = 0, clusters = 0;
    replay(stream, {COLOR, 12, {}, &explainer}, [&](const ReplayedFrame& frame) {
        const auto answers = asker.take();
        ask(frame.number + 1);
        ASSERT_EQ(answers.size(), 1u) << frame.number;
        if (frame.phase != Phase::kDetection) return;
        ASSERT_EQ(answers.size(), 1u) << frame.number;
        const Json json = Json::parse(answers[0].json);
        ASSERT_TRUE(json.contains("objects")) << json;
        const Seen& expected = seen[static_cast<std::size_t>(frame.number - 1)];
        EXPECT_EQ(json["frame"], frame.number);
        EXPECT_EQ(json["background"], "compared");
        EXPECT_EQ(json["low"], expected.facts.clt);
        EXPECT_EQ(json["high"], expected.facts.cht);
        EXPECT_EQ(json["foreground"], expected.facts.foreground);
        EXPECT_EQ(json["components"], expected.facts.components);
        compareObjects(json, expected.facts.objects);
        for (std::size_t i = 0; i < 2; i++) compareCell(json["place"]["cells"][i], expected.cells[i]);
        nearest += comparePixel(json["place"], expected);
        compareLayer(json["layer"], answers[0].layer, expected);
        objects += static_cast<int>(expected.facts.objects.size());
        foreground += expected.cells[0].label != 0;
        clusters += expected.cells[0].background.nclusters;
    });
    EXPECT_GT(objects, 50);
    EXPECT_GT(foreground, 1);
    EXPECT_GT(nearest, 20);
    EXPECT_GT(clusters, 70);
}

// A cell's time goes on while it is what it is, and begins anew when it changes.
TEST_F(Explain, HowLongItHasBeenSo) {
    fe::Explainer explainer(asker.there);
    struct Latest {
        int label = -1, frame = 0;
        bool start = false;
    };
    std::vector<Latest> latest(64 * 48);
    int changes = 0;
    replay(sceneStream(kScene), {COLOR, 12, {}, &explainer}, [&](const ReplayedFrame& frame) {
        if (frame.phase != Phase::kDetection) return;
        const GridColorDiff& g = *frame.tracker.G;
        const fe::Snapshot& s = explainer.snapshot();
        for (int k = 0; k < g.cnum; k++) {
            Latest& before = latest[static_cast<std::size_t>(k)];
            const int label = g.label[k] != 0 ? 1 : 0;
            if (before.label < 0) before = {0, 0, true};
            if (label != before.label) {
                before = {label, frame.number, false};
                changes++;
            }
            EXPECT_EQ((s.since[static_cast<std::size_t>(k)] & 1), static_cast<fe::Since>(label)) << k;
            if (before.start) {
                EXPECT_EQ(s.since[static_cast<std::size_t>(k)] >> 1, 0u) << k;
            } else if (before.frame == frame.number) {
                EXPECT_EQ(s.secondsSince(k), 0) << k;
            }
        }
        if (frame.number % 10 == 0) {
            const Json json = answerTo(explainer, "1 0 cell 31 23");
            const auto k = json["place"]["cells"][0]["cell"].get<std::size_t>();
            EXPECT_EQ(json["place"]["cells"][0]["since_start"], latest[k].start) << frame.number;
        }
    });
    EXPECT_GT(changes, 100);
}

TEST_F(Explain, HostileAskers) {
    fe::Explainer explainer(asker.there);
    EXPECT_EQ(answerTo(explainer, "1 0")["error"], "no frame has come yet");
    replay(sceneStream({64, 48, 20, 13, 5, 0, 1}), {COLOR, 12, {}, &explainer}, [&](const ReplayedFrame& frame) {
        if (frame.number < 20) return;
        struct Row {
            const char* question;
            const char* error;
        };
        for (const Row& row :
             {Row{"1 0 cell 64 0", "cell: outside of the frame"}, Row{"1 0 cell 0 48", "cell: outside of the frame"},
              Row{"1 0 cell 2147483647 2147483647", "cell: outside of the frame"},
              Row{"1 19", "that frame is not the latest"}, Row{"1 0 nothing", "expected cell, object or layer"}})
            EXPECT_EQ(answerTo(explainer, row.question)["error"], row.error) << row.question;
        EXPECT_TRUE(answerTo(explainer, "1 0 object 99999")["object"].is_null());
        EXPECT_EQ(answerTo(explainer, std::string(fe::kMostLine + 1, '1'))["error"], "the line is too long");
        EXPECT_EQ(answerTo(explainer, std::string(100'000, 'x'))["error"], "the line is too long");
        for (int turns = 0; turns < 2000 && !asker.send("9 0\n"); turns++) explainer.waitFor(always_);
        std::vector<Asker::Answer> answers;
        for (int turns = 0; turns < 2000 && (answers.empty() || answers.back().id != 9); turns++)
            answers = between(explainer);
        ASSERT_FALSE(answers.empty());
        EXPECT_EQ(answers.back().id, 9u) << "a sound question behind a line without end";
        // One that never reads is asked no more questions than its socket holds answers.
        for (int i = 0; i < 5000; i++) {
            asker.send("3 0 layer age\n");
            explainer.waitFor(always_);
        }
        EXPECT_EQ(asker.take().front().id, 3u);
        // A question about a frame to come is replaced by the next one.
        for (const char* question : {"4 999999\n", "5 0\n"}) {
            while (!asker.send(question)) between(explainer);
            answers = between(explainer);
        }
        for (int turns = 0; turns < 5000 && (answers.empty() || answers.back().id != 5); turns++) {
            auto more = between(explainer);
            if (!more.empty()) answers = more;
        }
        EXPECT_EQ(answers.back().id, 5u);
        asker.hangUp();
        explainer.waitFor(always_);
        explainer.waitFor(always_);
        EXPECT_EQ(explainer.snapshot().cycle, nullptr);
    });
}

// The whole program but its confinement: questions in the midst of a message, and behind the last one.
TEST_F(Explain, TheInputBringsTheSameFrames) {
    const TempDir root;
    root.writeControl(backgroundFrames(12));
    setenv("FLEIFEISA_ROOT", root.path.c_str(), 1);
    setenv("FLEIFEISA_SANDBOX", "off", 1);
    std::string args[] = {"fleifeisa-explain", "COLOR", "STREAMING", "3", "5"};
    char* argv[] = {args[0].data(), args[1].data(), args[2].data(), args[3].data(), args[4].data(), nullptr};
    const std::string stream = sceneStream(kScene);
    std::istringstream plain(stream);
    std::ostringstream expected, replies;
    ASSERT_EQ(RunAnalyzer(5, argv, plain, expected), 0);

    int pipe_ends[2];
    ASSERT_EQ(pipe2(pipe_ends, O_CLOEXEC), 0);
    fe::Explainer explainer(asker.there);
    fe::AskedInput input(pipe_ends[0], explainer);
    std::istream in(&input);
    int status = -1;
    std::thread analyzer([&] { status = RunAnalyzer(5, argv, in, replies, &explainer); });
    int answered = 0;
    for (std::size_t at = 0; at < stream.size(); at += 7001) {
        asker.send("8 0 cell 1 1 layer labels\n");
        const std::string part = stream.substr(at, 7001);
        EXPECT_EQ(write(pipe_ends[1], part.data(), part.size()), static_cast<ssize_t>(part.size()));
        answered += static_cast<int>(asker.take().size());
    }
    close(pipe_ends[1]);
    analyzer.join();
    answered += static_cast<int>(asker.take().size());
    close(pipe_ends[0]);
    unsetenv("FLEIFEISA_SANDBOX");
    unsetenv("FLEIFEISA_ROOT");
    EXPECT_EQ(status, 0);
    EXPECT_EQ(replies.str(), expected.str());
    EXPECT_GT(answered, 10);
}

}  // namespace
