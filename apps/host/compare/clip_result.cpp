#include "compare/clip_result.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr const char* kFrames = "frames.jsonl";
constexpr const char* kBoxes = "mot.csv";
constexpr const char* kEvents = "events.jsonl";

[[noreturn]] void fail(const fs::path& path, std::int64_t line, const std::string& what) {
    throw ResultError(path.string() + ":" + std::to_string(line) + ": " + what);
}

/// Calls `each` with every line and its number. @throws ResultError where the file cannot be read
template <class Each>
void eachLine(const fs::path& path, const Each& each) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw ResultError(path.string() + ": cannot be read");
    std::string line;
    for (std::int64_t number = 1; std::getline(file, line); ++number) each(line, number);
}

/// What stands in one line. @throws ResultError where it is none, or lacks a field
template <class Read>
void readLine(const fs::path& path, std::int64_t number, const std::string& line, const Read& read) {
    const json value = json::parse(line, nullptr, false);
    try {
        read(value);
    } catch (const json::exception&) {
        fail(path, number, "not a line of this kind of file");
    }
}

/// frames.jsonl; the sequence number of each frame, in their order. Sizes stand in `sizes`.
std::vector<std::int64_t> readFrames(const fs::path& path, ClipResult& result,
                                     std::vector<std::pair<int, int>>& sizes) {
    std::vector<std::int64_t> sequences;
    eachLine(path, [&](const std::string& line, std::int64_t number) {
        readLine(path, number, line, [&](const json& frame) {
            const auto time_ns = frame.at("time_ns").get<std::int64_t>();
            const int width = frame.at("width").get<int>(), height = frame.at("height").get<int>();
            if (width < 1 || height < 1) fail(path, number, "a frame without a size");
            if (!result.frames.empty() && time_ns <= result.frames.back().time_ns)
                fail(path, number, "times do not rise");
            result.frames.push_back({time_ns, frame.at("detection").get<bool>(), {}});
            sequences.push_back(frame.at("sequence").get<std::int64_t>());
            sizes.emplace_back(width, height);
        });
    });
    if (result.frames.empty()) throw ResultError(path.string() + ": there is no frame in it");
    std::tie(result.width, result.height) = sizes.front();
    return sequences;
}

/// frame, id, left, top, width, height of a line, the corner 1-based.
bool parseBox(const std::string& line, std::array<std::int64_t, 6>& values) {
    const char *at = line.data(), *const end = line.data() + line.size();
    for (std::int64_t& value : values) {
        const auto [next, error] = std::from_chars(at, end, value);
        if (error != std::errc() || next == end || *next != ',') return false;
        at = next + 1;
    }
    return values[4] > 0 && values[5] > 0;
}

void readBoxes(const fs::path& path, const std::vector<std::int64_t>& sequences,
               const std::vector<std::pair<int, int>>& sizes, ClipResult& result) {
    std::size_t index = 0;
    eachLine(path, [&](const std::string& line, std::int64_t number) {
        std::array<std::int64_t, 6> values{};
        if (!parseBox(line, values)) fail(path, number, "expected frame,id,left,top,width,height,...");
        while (index < sequences.size() && sequences[index] != values[0]) ++index;
        if (index == sequences.size())
            fail(path, number, "frame " + std::to_string(values[0]) + " is not in " + kFrames + ", or out of order");
        const double width = sizes[index].first, height = sizes[index].second;
        const auto left = static_cast<double>(values[2] - 1), top = static_cast<double>(values[3] - 1);
        result.frames[index].shown.push_back(
            {values[1],
             {left / width, top / height, (left + static_cast<double>(values[4])) / width,
              (top + static_cast<double>(values[5])) / height}});
    });
}

std::string textOf(const json& event, const char* key) {
    const auto found = event.find(key);
    return found == event.end() || found->is_null() ? "" : found->get<std::string>();
}

CameraEvent eventOf(const json& message) {
    CameraEvent event;
    if (const auto id = parseEventId(message.at("event").get<std::string>()))
        std::tie(event.camera, event.number) = *id;
    event.kind = eventKindOf(message.at("kind").get<std::string>()).value_or(EventKind::kExternal);
    event.state = eventStateOf(message.at("state").get<std::string>()).value_or(EventState::kStart);
    event.rule = textOf(message, "rule");
    event.change = textOf(message, "change");
    event.reason = textOf(message, "reason");
    event.track = message.at("track").is_null() ? 0 : message.at("track").get<std::int64_t>();
    event.start_ns = message.at("start_ns").get<std::int64_t>();
    event.time_ns = message.at("time_ns").get<std::int64_t>();
    if (!message.at("end_ns").is_null()) event.end_ns = message.at("end_ns").get<std::int64_t>();
    if (!message.at("value").is_null()) event.value = message.at("value").get<double>();
    event.held = message.at("held").get<bool>();
    return event;
}

void readEvents(const fs::path& path, ClipResult& result) {
    std::map<std::int64_t, CameraEvent> latest;
    eachLine(path, [&](const std::string& line, std::int64_t number) {
        readLine(path, number, line, [&](const json& message) {
            CameraEvent event = eventOf(message);
            // A zone's stay is named by how it began.
            if (const auto before = latest.find(event.number); before != latest.end())
                event.change = before->second.change;
            latest[event.number] = std::move(event);
        });
    });
    for (auto& [number, event] : latest) result.events.push_back(std::move(event));
}

}  // namespace

double overlap(const ShareBox& a, const ShareBox& b) {
    const double width = std::min(a.right, b.right) - std::max(a.left, b.left);
    const double height = std::min(a.bottom, b.bottom) - std::max(a.top, b.top);
    if (width <= 0 || height <= 0) return 0;
    const double both = width * height;
    return both / (a.area() + b.area() - both);
}

std::int64_t ClipResult::stepNs() const {
    if (frames.size() < 2) return 0;
    std::vector<std::int64_t> steps;
    for (std::size_t i = 1; i < frames.size(); ++i) steps.push_back(frames[i].time_ns - frames[i - 1].time_ns);
    const auto middle = steps.begin() + static_cast<std::ptrdiff_t>(steps.size() / 2);
    std::nth_element(steps.begin(), middle, steps.end());
    return *middle;
}

std::int64_t ClipResult::lengthNs() const {
    return frames.empty() ? 0 : frames.back().time_ns - frames.front().time_ns + stepNs();
}

std::int64_t ClipResult::learningNs() const {
    const auto first = std::ranges::find_if(frames, &ResultFrame::detection);
    return first == frames.end() ? lengthNs() : first->time_ns - frames.front().time_ns;
}

ClipResult readResult(const std::string& directory) {
    ClipResult result;
    std::vector<std::pair<int, int>> sizes;
    const fs::path in(directory);
    const std::vector<std::int64_t> sequences = readFrames(in / kFrames, result, sizes);
    readBoxes(in / kBoxes, sequences, sizes, result);
    if (fs::exists(in / kEvents)) readEvents(in / kEvents, result);
    return result;
}

bool holdsResult(const std::string& directory) {
    const fs::path in(directory);
    return fs::exists(in / kFrames) && fs::exists(in / kBoxes);
}

}  // namespace fleifeisa::host
