#include "archive/clip_result.h"

#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <stdexcept>

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

template <typename T>
T valueOr(const Json& json, const char* key, T otherwise) {
    const auto found = json.find(key);
    return found == json.end() || found->is_null() ? otherwise : found->get<T>();
}

/// 12 of "gate-12".
std::int64_t numberOf(const std::string& id) {
    return id.empty() ? 0 : std::stoll(id.substr(id.rfind('-') + 1));
}

template <typename Take>
void eachLine(const std::string& file, Take take) {
    std::istringstream lines(readFile(file));
    for (std::string line; std::getline(lines, line);) try {
            take(Json::parse(line), line);
        } catch (const std::exception& error) {
            throw std::runtime_error(file + ": " + error.what());
        }
}

void readEvent(const Json& json, const std::string& line, std::map<std::int64_t, ResultEvent>& events) {
    const std::int64_t number = numberOf(json.at("event"));
    ResultEvent& event = events[number];
    event.number = number;
    event.kind = json.at("kind");
    event.rule = valueOr<std::string>(json, "rule", "");
    event.reason = valueOr<std::string>(json, "reason", "");
    event.text = valueOr<std::string>(json, "text", "");
    if (const auto change = valueOr<std::string>(json, "change", ""); !change.empty())
        event.changes += (event.changes.empty() ? "" : ",") + change;
    event.track = valueOr<std::int64_t>(json, "track", 0);
    event.visit = numberOf(valueOr<std::string>(json, "visit", ""));
    event.start_ns = json.at("start_ns");
    event.end_ns = valueOr<std::int64_t>(json, "end_ns", json.at("time_ns"));
    if (const auto& value = json.at("value"); !value.is_null()) event.value = value.get<double>();
    event.held = json.at("held");
    event.message = line;
}

ResultTrack trackOf(const Json& json, const std::string& line) {
    ResultTrack track;
    track.number = json.at("track");
    track.start_ns = json.at("start_ns");
    track.end_ns = json.at("time_ns");
    track.frames = json.at("frames");
    track.path_px = json.at("path_px");
    track.ended = json.at("ended");
    track.message = line;
    return track;
}

std::set<std::string> filesIn(const std::string& directory) {
    std::set<std::string> names;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(directory, error)) names.insert(entry.path().filename().string());
    return names;
}

}  // namespace

ClipResult readResult(const Archive& archive, const std::string& name) {
    const std::string directory = archive.resultOf(name);
    ClipResult result{archive.summary(name), {}, {}};
    std::map<std::int64_t, ResultEvent> events;
    std::map<std::int64_t, ResultTrack> tracks;
    eachLine(directory + "/events.jsonl",
             [&](const Json& json, const std::string& line) { readEvent(json, line, events); });
    eachLine(directory + "/tracks.jsonl", [&](const Json& json, const std::string& line) {
        ResultTrack track = trackOf(json, line);
        tracks[track.number] = std::move(track);
    });
    const std::set<std::string> pictures = filesIn(directory + "/pictures"), videos = filesIn(directory + "/clips");
    const auto in = [](const std::set<std::string>& names, const char* below, const std::string& file) {
        return names.contains(file) ? std::string(below) + file : "";
    };
    for (auto& [number, event] : events) {
        const std::string head = std::to_string(number);
        event.thumb = in(pictures, "pictures/", head + "-thumb.jpg");
        event.picture = in(pictures, "pictures/", head + "-box.jpg");
        if (event.picture.empty()) event.picture = in(pictures, "pictures/", head + "-picture.jpg");
        event.strip = in(pictures, "pictures/", head + "-strip.jpg");
        event.video = in(videos, "clips/", std::to_string(event.kind == "motion" ? number : event.visit) + ".mp4");
        result.events.push_back(std::move(event));
    }
    for (auto& [number, track] : tracks) {
        track.thumb = in(pictures, "pictures/", "track-" + std::to_string(number) + ".jpg");
        result.tracks.push_back(std::move(track));
    }
    return result;
}

}  // namespace fleifeisa::host
