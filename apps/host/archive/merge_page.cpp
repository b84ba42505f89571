#include "archive/merge_page.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "archive/page_files.h"
#include "common/text.h"
#include "events/event.h"

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostBytes = 8u << 20;  ///< of data that waits to be written
constexpr std::int64_t kMostTroubles = 1000;  ///< clips that the page names; the database has all

/// For a script in a page: no end of the script can stand in it.
std::string safe(std::string json) {
    for (std::size_t at = 0; (at = json.find('<', at)) != std::string::npos; at += 6) json.replace(at, 1, "\\u003c");
    return json;
}

std::string quoted(const std::string& text) {
    return safe(jsonString(text));
}

std::string list(const std::array<std::int64_t, 24>& hours) {
    std::string text = "[";
    for (const std::int64_t count : hours) text += (text.size() > 1 ? "," : "") + std::to_string(count);
    return text + ']';
}

void append(const std::string& path, const std::string& text) {
    std::ofstream file(path, std::ios::app | std::ios::binary);
    file << text;
    if (!file.flush()) throw std::system_error(errno, std::generic_category(), path);
}

std::string dataFile(const std::string& camera, const std::string& day) {
    return camera + '-' + (day.empty() ? "undated" : day) + ".js";
}

std::string eventJson(const ResultEvent& event) {
    std::string json = "{\"n\":" + std::to_string(event.number) + ",\"k\":" + quoted(event.kind);
    const auto text = [&json](const char* key, const std::string& value) {
        if (!value.empty()) json += std::string(",\"") + key + "\":" + quoted(value);
    };
    text("r", event.rule);
    text("c", event.changes);
    text("why", event.reason);
    text("text", event.text);
    json +=
        ",\"s\":" + std::to_string(event.start_ns / 1'000'000) + ",\"e\":" + std::to_string(event.end_ns / 1'000'000);
    if (event.track > 0) json += ",\"t\":" + std::to_string(event.track);
    if (event.value) json += ",\"v\":" + valueText(*event.value);
    if (event.held) json += ",\"h\":1";
    text("p", event.picture);
    text("i", event.thumb);
    text("strip", event.strip);
    text("video", event.video);
    if (event.visit > 0) json += ",\"visit\":" + std::to_string(event.visit);
    return json + '}';
}

std::string trackJson(const ResultTrack& track) {
    return "{\"n\":" + std::to_string(track.number) + ",\"s\":" + std::to_string(track.start_ns / 1'000'000) +
           ",\"e\":" + std::to_string(track.end_ns / 1'000'000) + ",\"f\":" + std::to_string(track.frames) +
           ",\"px\":" + rounded(track.path_px, 0) + ",\"why\":" + quoted(track.ended) +
           (track.thumb.empty() ? "" : ",\"i\":" + quoted(track.thumb)) + '}';
}

}  // namespace

MergePage::MergePage(std::string directory, std::string place, const Plan& plan)
    : directory_(std::move(directory)), place_(std::move(place)), plan_(plan), time_(plan.timezone) {
    fs::create_directories(directory_ + "/data");
}

/// The head of a clip's events and tracks in a file of data: its result, its file, its beginning, seconds to add to
/// UTC.
std::string MergePage::clipJson(const ClipRun& run) const {
    const bool is_file = run.clip.file.starts_with('/');
    const std::string file = is_file ? fs::path(run.clip.file).lexically_relative(place_).string() : std::string();
    return "archive.clip({\"n\":" + quoted(run.name) + ",\"f\":" + quoted(file) +
           ",\"s\":" + std::to_string(run.clip.start_time_ns.value_or(0) / 1'000'000) + "});\n";
}

void MergePage::add(const ClipRun& run, const ClipResult* result, const std::string& state, const std::string& reason) {
    Camera& camera = cameras_[run.clip.camera];
    if (state != "done" && ++trouble_count_ <= kMostTroubles)
        troubles_ += (troubles_.empty() ? "" : ",\n") + std::string("[") + quoted(run.clip.camera) + ',' +
                     quoted(run.clip.file) + ',' + quoted(state) + ',' + quoted(reason) + ']';
    if (result == nullptr) return;
    ++camera.clips;
    camera.frames += result->summary.frames;
    camera.tracks += static_cast<std::int64_t>(result->tracks.size());
    std::map<std::string, std::string> days;
    const bool dated = run.clip.start_time_ns.has_value();
    const auto day = [&](std::int64_t time_ns) { return dated ? time_.dayOf(time_ns) : std::string(); };
    for (const ResultEvent& event : result->events) {
        const std::string date = day(event.start_ns);
        const auto hour = static_cast<std::size_t>(dated ? time_.hourOf(event.start_ns) : 0);
        ++camera.days[date].events[hour];
        if (!event.rule.empty()) camera.rules.insert(event.rule);
        if (event.kind == "line") {
            Hours& hours = camera.lines[event.rule][date];
            ++(event.changes == "backward" ? hours.backward : hours.forward)[hour];
        }
        days[date] += "archive.event(" + eventJson(event) + ");\n";
    }
    for (const ResultTrack& track : result->tracks) {
        const std::string date = day(track.start_ns);
        camera.days[date];
        days[date] += "archive.track(" + trackJson(track) + ");\n";
    }
    for (const auto& [date, lines] : days) {
        const std::string text = clipJson(run) + lines;
        data_[dataFile(run.clip.camera, date)] += text;
        bytes_ += text.size();
    }
    if (bytes_ > kMostBytes) flush();
}

void MergePage::flush() {
    for (const auto& [file, text] : data_) append(directory_ + "/data/" + file, text);
    data_.clear();
    bytes_ = 0;
}

void MergePage::finish() {
    flush();
    std::string json = "{\"timezone\":" + quoted(plan_.timezone) + ",\"clips\":" + std::to_string(plan_.runs.size()) +
                       ",\"troubleCount\":" + std::to_string(trouble_count_) + ",\"troubles\":[" + troubles_ +
                       "],\n\"cameras\":[";
    bool first = true;
    for (const auto& [name, camera] : cameras_) {
        const auto title = plan_.titles.find(name);
        json += std::string(first ? "\n" : ",\n") + "{\"name\":" + quoted(name) +
                ",\"title\":" + quoted(title == plan_.titles.end() ? name : title->second) +
                ",\"clips\":" + std::to_string(camera.clips) + ",\"frames\":" + std::to_string(camera.frames) +
                ",\"tracks\":" + std::to_string(camera.tracks) + ",\"rules\":[";
        for (const std::string& rule : camera.rules) json += (rule == *camera.rules.begin() ? "" : ",") + quoted(rule);
        json += "],\"days\":{";
        for (const auto& [day, hours] : camera.days)
            json += (day == camera.days.begin()->first ? "" : ",") + quoted(day) + ':' + list(hours.events);
        json += "},\"lines\":{";
        for (const auto& [line, days] : camera.lines) {
            json += (line == camera.lines.begin()->first ? "" : ",") + quoted(line) + ":{";
            for (const auto& [day, hours] : days)
                json += (day == days.begin()->first ? "" : ",") + quoted(day) + ":[" + list(hours.forward) + ',' +
                        list(hours.backward) + ']';
            json += '}';
        }
        json += "}}";
        first = false;
    }
    json += "]}";
    std::string page(archivePage());
    for (const auto& [mark, text] : {std::pair<std::string, std::string>{"/*STYLE*/", std::string(archiveStyle())},
                                     {"/*SCRIPT*/", std::string(archiveScript())},
                                     {"/*DATA*/", "const archiveData = " + json + ";"}})
        page.replace(page.find(mark), mark.size(), text);
    append(directory_ + "/index.html", page);
}

}  // namespace fleifeisa::host
