// What is changed on the page: laid over the configuration, kept, taken back.
#include "cli/overrides.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "cli/change_history.h"
#include "cli/config.h"
#include "cli/config_values.h"

namespace fleifeisa::host {
namespace {

using nlohmann::json;

constexpr const char* kPath = "/nowhere/cameras.toml";
constexpr const char* kOverrides = "/state/overrides.toml";
const std::string kFile = R"([[camera]]
name = "gate"
source = "gate.avi"
device = 1
rate = 10
control = { color_low = 0.3, color_high = 0.6 }
[[camera.zone]]
name = "yard"
points = [[0,0],[1,0],[1,1]]
dwell = 20
[[camera.line]]
name = "door"
points = [[0,0],[1,1]]
[[camera]]
name = "yard"
source = "yard.avi"
device = 2
)";

HostConfig merged(const std::string& changes, std::vector<std::string>& errors) {
    const OverridesFile file{kOverrides, changes};
    return parseConfig(kFile, kPath, errors, ConfigCheck::kText, &file);
}

const std::string kGate = "[[camera]]\nname = 'gate'\n";

TEST(Overrides, AreLaidOverTheFile) {
    const struct {
        const char* changes;
        std::function<void(CameraConfig&)> expected;
    } rows[] = {
        {"", [](auto&) {}},
        {"rate = 5\nleast_area = 0.01", [](auto& c) { c.source.rate = 5, c.filter.least_area = 0.01; }},
        {"control = { color_high = 0.9 }", [](auto& c) { c.control.color_high = "0.9"; }},
        {"control.bgframes = 40", [](auto& c) { c.control.bgframes = "40"; }},
        {"motion = { off_delay = 3 }", [](auto& c) { c.rules.off_delay = 3; }},
        {"masks = [[[0,0],[1,0],[1,0.5]]]",
         [](auto& c) {
             c.source.masks = {{{0, 0}, {1, 0}, {1, 0.5}}};
         }},
        {"private = [[[0,0],[1,0],[1,0.5]]]",
         [](auto& c) {
             c.source.private_areas = {{{0, 0}, {1, 0}, {1, 0.5}}};
         }},
        {"[[camera.zone]]\nname = 'yard'\ndwell = 5", [](auto& c) { c.rules.zones[0].dwell = 5; }},
        {"[[camera.zone]]\nname = 'yard'\nremoved = true\ndwell = 5", [](auto& c) { c.rules.zones.clear(); }},
        {"[[camera.line]]\nname = 'door'\nremoved = true", [](auto& c) { c.rules.lines.clear(); }},
        {"[[camera.line]]\nname = 'in'\nadded = true\npoints = [[0,1],[1,0]]",
         [](auto& c) {
             c.rules.lines.push_back({"in", "", {0, 1}, {1, 0}, {}});
         }},
        // Added on the page, and later written into the file as well: what was changed holds.
        {"[[camera.zone]]\nname = 'yard'\nadded = true\npoints = [[0,0],[0.5,0],[1,1]]",
         [](auto& c) {
             c.rules.zones[0].points = {{0, 0}, {0.5, 0}, {1, 1}};
         }},
    };
    for (const auto& row : rows) {
        std::vector<std::string> errors;
        HostConfig expected = merged("", errors);
        row.expected(expected.cameras[0]);
        const HostConfig config = merged(kGate + row.changes + '\n', errors);
        ASSERT_TRUE(errors.empty()) << errors.front();
        EXPECT_TRUE(config.warnings.empty()) << row.changes;
        EXPECT_TRUE(config.cameras == expected.cameras) << row.changes;
        // The same by way of JSON, as the host writes it.
        const std::string again = overridesText(overridesJson(kGate + row.changes + '\n', kOverrides));
        EXPECT_TRUE(merged(again, errors).cameras == expected.cameras) << again;
        EXPECT_EQ(overridesJson(again, kOverrides), overridesJson(kGate + row.changes, kOverrides));
    }
}

TEST(Overrides, SayWhereTheyStand) {
    std::vector<std::string> errors;
    const HostConfig config = merged(kGate + "rate = 5\n[[camera.zone]]\nname = 'yard'\ndwell = 1\n", errors);
    std::map<std::string, std::string> origins;
    for (const ConfigValue& value : valuesInForce(config)) origins[value.key] = value.value + ' ' + value.origin;
    EXPECT_EQ(origins["camera.gate.rate"], "5 /state/overrides.toml:3");
    EXPECT_EQ(origins["camera.gate.zone.yard.dwell"], "1 /state/overrides.toml:6");
    EXPECT_EQ(origins["camera.gate.zone.yard.name"], "\"yard\" /nowhere/cameras.toml:8");
    EXPECT_EQ(origins["camera.yard.stopped"], "5 default");
    EXPECT_FALSE(origins.contains("camera.gate.control.color_low"));  // stands in the file's `control`
}

TEST(Overrides, FaultsAndWarnings) {
    const struct {
        std::string changes, words;
        bool warning;
    } rows[] = {
        {"[[camera]]\nname = 'gone'\nrate = 5", ":1: there is no camera 'gone' any more", true},
        {kGate + "[[camera.zone]]\nname = 'old'\ndwell = 5", ":3: camera gate has no zone 'old' any more", true},
        {kGate + "[[camera.line]]\nname = 'old'\nremoved = true", ":3: camera gate has no line 'old' any more", true},
        {kGate + "source = '/etc/passwd'", ":3: camera.gate.source: is not to be changed here", false},
        {kGate + "ffmpeg_options = ['-f']", ":3: camera.gate.ffmpeg_options: is not to be changed here", false},
        {"on_event = ['/bin/sh']", ":1: on_event: has no place", false},
        {"state = '/tmp'", ":1: state: has no place", false},
        {kGate + "rate = -1", ":3: camera[1].rate: expected a number", false},
        {kGate + "control = { root = 1 }", "camera[1].control.root: unknown key", false},
        {kGate + "zone = 5", ":3: camera.gate.zone: expected [[camera.zone]] tables", false},
        {kGate + "[[camera.zone]]\nname = 'x'\nadded = true\npoints = [[0,0],[1,1]]", "zone[2].points: ", false},
        {kGate + "rate = ", ":3: ", false},
    };
    for (const auto& row : rows) {
        std::vector<std::string> errors;
        const HostConfig config = merged(row.changes + '\n', errors);
        const std::vector<std::string>& said = row.warning ? config.warnings : errors;
        ASSERT_EQ(said.size(), 1u) << row.changes;
        EXPECT_TRUE(said[0].starts_with("/state/overrides.toml:") || !row.words.starts_with(":")) << said[0];
        EXPECT_NE(said[0].find(row.words), std::string::npos) << said[0];
        EXPECT_EQ(errors.empty(), row.warning);
    }
}

TEST(ChangeHistory, HoldsWhatCameIntoForce) {
    const std::string state = std::filesystem::path(testing::TempDir()) / ("history" + std::to_string(::getpid()));
    std::filesystem::create_directories(state);
    const ChangeHistory history(state);
    const auto changes = [](int number) {
        return json{{"change", number}, {"camera", {{"gate", {{"rate", number}}}}}};
    };
    const auto line = [](int number) {
        return json{
            {"change", number}, {"camera", "gate"}, {"units", {{"rate", {{"before", nullptr}, {"after", number}}}}}};
    };
    EXPECT_EQ(history.overrides()["change"], 0);
    for (int number = 1; number <= 3; ++number) history.commit(line(number), changes(number));
    EXPECT_EQ(history.overrides(), changes(3));
    EXPECT_EQ(history.lines(3).size(), 3u);
    // The host ended between the two files, and in the middle of a line.
    std::ofstream(state + "/changes.jsonl", std::ios::app) << line(4).dump() << "\n{\"change\":5,\"un";
    EXPECT_EQ(history.lines(3).size(), 3u);
    json other = line(4);
    other["user"] = "ann";
    history.commit(other, changes(4));
    ASSERT_EQ(history.lines(4).size(), 4u);
    EXPECT_EQ(history.lines(4)[3]["user"], "ann");
    // Of many the oldest go.
    for (int number = 5; number <= static_cast<int>(ChangeHistory::kMost) + 1; ++number)
        std::ofstream(state + "/changes.jsonl", std::ios::app) << line(number).dump() << '\n';
    history.commit(line(ChangeHistory::kMost + 2), changes(ChangeHistory::kMost + 2));
    const auto rest = history.lines(INT64_MAX);
    EXPECT_EQ(rest.size(), ChangeHistory::kMost / 2 + 2);
    EXPECT_EQ(rest.back()["change"], ChangeHistory::kMost + 2);
    // What cannot be written changes nothing.
    std::filesystem::create_directory(state + "/overrides.toml.part");
    EXPECT_THROW(history.commit(line(9000), changes(9000)), std::system_error);
    EXPECT_EQ(history.overrides()["change"], ChangeHistory::kMost + 2);
    std::filesystem::remove_all(state);
}

}  // namespace
}  // namespace fleifeisa::host
