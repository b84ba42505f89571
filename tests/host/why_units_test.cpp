// The host's side of "why?": a wire to an analyzer that may answer anything, a box of questions that nobody waits at,
// and when analyzers explain themselves at all.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <filesystem>
#include <fstream>

#include "analyzer/question_wire.h"
#include "cli/explain_choice.h"
#include "common/memory_left.h"
#include "support/process.h"
#include "why/why_box.h"
#include "why/why_json.h"

namespace {

using namespace fleifeisa;
using namespace fleifeisa::host;

class Wire : public testing::Test {
 protected:
    Wire() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
        wire = QuestionWire(Fd(ends[0]));
        analyzer = Fd(ends[1]);
    }
    void answer(const std::string& bytes) {
        EXPECT_EQ(write(analyzer.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
        wire.read();
    }
    std::string heard() const {
        char text[200];
        const ssize_t n = read(analyzer.get(), text, sizeof text);
        return {text, static_cast<std::size_t>(std::max<ssize_t>(n, 0))};
    }

    QuestionWire wire;
    Fd analyzer;
};

TEST_F(Wire, OneQuestionAtATimeAndItsAnswerInAnyPieces) {
    ASSERT_TRUE(wire.ask("0 cell 1 2"));
    EXPECT_FALSE(wire.ask("0"));
    EXPECT_EQ(heard(), "1 0 cell 1 2\n");
    const std::string bytes = std::string("1 2 3\n{}") + "a\nc";
    for (const char c : bytes) {
        EXPECT_FALSE(wire.take());
        answer(std::string(1, c));
    }
    const auto got = wire.take();
    ASSERT_TRUE(got);
    EXPECT_EQ(got->json, "{}");
    EXPECT_EQ(got->layer, "a\nc");
    EXPECT_FALSE(wire.busy());
    // The answer to a question that was given up is not taken for that to the next one.
    ASSERT_TRUE(wire.ask("0"));
    wire.forget();
    ASSERT_TRUE(wire.ask("0"));
    answer("2 5 0\nfirst3 6 0\nsecond");
    EXPECT_EQ(wire.take()->json, "second");
}

TEST_F(Wire, WhatIsNoAnswerClosesIt) {
    for (const char* bytes : {"\n", "x\n", "1\n", "1 2\n", "1 2 x\n", "1 2 3 4\n", "-1 2 3\n", "1 65537 0\n",
                              "1 0 65537\n", "99999999999 0 0\n", "1 18446744073709551616 0\n",
                              "an answer without an end and without a line, longer than a head"}) {
        int ends[2] = {-1, -1};
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
        wire = QuestionWire(Fd(ends[0]));
        analyzer = Fd(ends[1]);
        ASSERT_TRUE(wire.ask("0"));
        answer(bytes);
        EXPECT_FALSE(wire.open()) << bytes;
        EXPECT_FALSE(wire.busy()) << bytes;
        EXPECT_FALSE(wire.take()) << bytes;
        EXPECT_FALSE(wire.ask("0")) << bytes;
    }
}

TEST_F(Wire, NobodyReadsOrIsThere) {
    wire.ask("0");
    for (int i = 0; i < 100'000 && wire.open(); i++) {
        wire.forget();
        wire.ask("0 cell 1 2 layer difference");
    }
    EXPECT_FALSE(wire.open()) << "an asker that is not heard stops";
}

TEST(WhyBox, NobodyWaitsForLong) {
    WhyBox box;
    std::vector<std::string> told;
    const auto take = [&told](const WhyAnswer& answer) { told.push_back(answer.fault + answer.json); };
    EXPECT_TRUE(box.ask({}, take));
    EXPECT_EQ(told, std::vector<std::string>{"the camera has not started yet"});
    told.clear();
    const std::uint64_t first = box.open();
    for (std::size_t i = 0; i < WhyBox::kMostWaiting; i++) EXPECT_TRUE(box.ask({}, take));
    EXPECT_FALSE(box.ask({}, take));
    const auto asked = box.next();
    ASSERT_TRUE(asked);
    EXPECT_NE(box.next()->id, asked->id) << "each is given once";
    box.answer(asked->id, {"", "{}", ""});
    box.answer(asked->id, {"", "{}", ""});
    EXPECT_EQ(told, std::vector<std::string>{"{}"});
    box.expire(Clock::now() + seconds(WhyBox::kPatience - 1));
    EXPECT_EQ(told.size(), 1u);
    box.expire(Clock::now() + seconds(WhyBox::kPatience + 1));
    EXPECT_EQ(told.size(), WhyBox::kMostWaiting);
    EXPECT_EQ(told.back(), "there was no answer in time");
    // A camera that was replaced closes nothing of its successor's.
    const std::uint64_t second = box.open();
    box.close(first, "gone");
    EXPECT_EQ(box.closedBecause(), "");
    EXPECT_TRUE(box.ask({}, take));
    box.close(second, "gone");
    EXPECT_EQ(told.back(), "gone");
}

TEST(WhyBox, QuestionsAreShortLines) {
    WhyQuestion question;
    EXPECT_EQ(question.words(7), "7");
    question.at = {3, 4};
    question.object = 5;
    question.layer = "age";
    EXPECT_EQ(question.words(0), "0 cell 3 4 object 5 layer age");
}

TEST(Explain, WhereAndWhyNot) {
    const TempDir dir;
    for (const char* name : {"fleifeisa", "fleifeisa-explain", "other"}) {
        dir.write(name, "#!/bin/sh\n");
        std::filesystem::permissions(dir.path + '/' + name, std::filesystem::perms::owner_all);
    }
    struct Row {
        std::optional<bool> wanted;
        bool page;
        std::optional<std::int64_t> left;
        const char* analyzer;
        const char* off;  // a part of the reason, "": on
    };
    constexpr std::int64_t kMuch = std::int64_t{1} << 30, kLittle = 10 << 20;
    for (const Row& row : {Row{{}, true, kMuch, "fleifeisa", ""}, Row{{}, true, {}, "fleifeisa", ""},
                           Row{{}, false, kMuch, "fleifeisa", "no page"}, Row{true, false, kMuch, "fleifeisa", ""},
                           Row{false, true, kMuch, "fleifeisa", "configuration"},
                           Row{{}, true, kLittle, "fleifeisa", "memory is short, 10 MB"},
                           Row{true, true, kLittle, "fleifeisa", "memory is short"},
                           Row{{}, true, kMuch, "other", "beside the analyzer"}}) {
        CameraConfig camera;
        camera.explain = row.wanted;
        camera.analyzer.program = dir.path + '/' + row.analyzer;
        camera.analyzer.explainer = "of before";
        chooseExplain(camera, row.page, row.left);
        EXPECT_EQ(camera.analyzer.explainer, *row.off == '\0' ? dir.path + "/fleifeisa-explain" : "") << row.off;
        EXPECT_EQ(camera.explain_off.empty(), *row.off == '\0') << camera.explain_off;
        EXPECT_NE(camera.explain_off.find(row.off), std::string::npos) << camera.explain_off;
    }
}

TEST(Explain, MemoryThatIsLeft) {
    const TempDir root;
    const auto put = [&root](const std::string& file, const std::string& text) {
        std::filesystem::create_directories(std::filesystem::path(root.path + '/' + file).parent_path());
        std::ofstream(root.path + '/' + file) << text;
    };
    EXPECT_FALSE(memoryLeft(root.path));
    put("proc/meminfo", "MemTotal:  8000 kB\nMemFree:   10 kB\nMemAvailable:    4000 kB\nHugePages_Total:       0\n");
    EXPECT_EQ(memoryLeft(root.path), 4000 << 10);
    put("proc/self/cgroup", "1:name=systemd:/x\n0::/a/b\n");
    put("sys/fs/cgroup/a/b/memory.max", "max\n");
    EXPECT_EQ(memoryLeft(root.path), 4000 << 10);
    put("sys/fs/cgroup/a/memory.max", "100000\n");
    put("sys/fs/cgroup/a/memory.current", "90000\n");
    put("sys/fs/cgroup/a/memory.stat", "anon 5\ninactive_file 2000\n");
    EXPECT_EQ(memoryLeft(root.path), 12000);
}

TEST(WhyJson, TheRuleOfAnEvent) {
    Rules rules;
    rules.zones.push_back({"yard", "", {{0, 0}, {1, 0}, {1, 1}}, {}, 20, 0});
    rules.zones.push_back({"yard2", "", {{0, 0}, {1, 0}, {1, 1}}, {}, 0, 0});
    rules.lines.push_back({"yard", "", {0, 0}, {1, 1}, {}});
    const std::string text = rulesText(rules);
    const auto of = [&text](EventKind kind, const std::string& rule) {
        CameraEvent event;
        event.kind = kind;
        event.rule = rule;
        return ruleValues(event, text).substr(0, 14);
    };
    EXPECT_EQ(of(EventKind::kZone, "yard"), "zone yard 0,0 ");
    EXPECT_EQ(of(EventKind::kStopped, "yard2"), "zone yard2 0,0");
    EXPECT_EQ(of(EventKind::kLine, "yard"), "line yard 0,0 ");
    EXPECT_EQ(of(EventKind::kMotion, ""), "motion off_del");
    EXPECT_EQ(of(EventKind::kStopped, ""), "stopped 5");
    EXPECT_EQ(of(EventKind::kExternal, ""), "");
}

}  // namespace
