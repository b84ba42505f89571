#include "archive/clip_videos.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "archive/archive.h"
#include "archive/child_output.h"
#include "common/text.h"
#include "recorder/transcoder.h"

namespace fleifeisa::host {
namespace {

struct Visit {
    std::int64_t start_ns = 0, end_ns = 0;
};

/// By number.
std::map<std::string, Visit> visitsOf(const std::string& events) {
    std::map<std::string, Visit> visits;
    std::istringstream lines(readFile(events));
    for (std::string line; std::getline(lines, line);) {
        const auto event = nlohmann::json::parse(line);
        if (event.at("kind") != "motion") continue;
        const std::string id = event.at("event");
        Visit& visit = visits[id.substr(id.rfind('-') + 1)];
        visit.start_ns = event.at("start_ns");
        visit.end_ns = event.at("end_ns").is_null() ? event.at("time_ns") : event.at("end_ns");
    }
    return visits;
}

}  // namespace

bool isPlayable(const std::string& file) {
    const std::string text =
        outputOf({"ffprobe", "-v", "quiet", "-protocol_whitelist", "file", "-select_streams", "v:0", "-show_entries",
                  "stream=codec_name,pix_fmt:format=format_name", "-of", "default=nw=1:nk=1", "file:" + file});
    const auto has = [&text](const char* word) { return text.find(word) != std::string::npos; };
    return (has("h264\nyuv420p\n") || has("vp8\nyuv420p\n") || has("vp9\nyuv420p\n") || has("av1\nyuv420p\n")) &&
           (has("mp4") || (has("webm") && file.ends_with(".webm")));
}

void makeVisits(const std::string& part, const Clip& clip, const Event& stop) {
    constexpr std::int64_t kMarginNs = 3'000'000'000;
    for (const auto& [number, visit] : visitsOf(part + "/events.jsonl")) {
        std::filesystem::create_directories(part + "/clips");
        const std::int64_t begin_ns = clip.start_time_ns.value_or(0);
        const std::int64_t from_ns = std::max<std::int64_t>(0, visit.start_ns - begin_ns - kMarginNs);
        const auto longest_ns = static_cast<std::int64_t>(kLongestVisit * 1e9);
        const std::int64_t length_ns = std::min(longest_ns, visit.end_ns - begin_ns + kMarginNs - from_ns);
        // Alike each time: no date, no version, one thread.
        Transcoder transcoder({"-protocol_whitelist",
                               "file",
                               "-ss",
                               fixedPoint(from_ns / 1000, 6),
                               "-t",
                               fixedPoint(length_ns / 1000, 6),
                               "-i",
                               "file:" + clip.file,
                               "-map",
                               "0:v:0",
                               "-an",
                               "-sn",
                               "-dn",
                               "-map_metadata",
                               "-1",
                               "-fflags",
                               "+bitexact",
                               "-flags:v",
                               "+bitexact",
                               "-vf",
                               "scale=trunc(iw/2)*2:trunc(ih/2)*2",
                               "-sws_flags",
                               "bicubic+accurate_rnd+bitexact",
                               "-c:v",
                               "libx264",
                               "-preset",
                               "veryfast",
                               "-crf",
                               "26",
                               "-pix_fmt",
                               "yuv420p",
                               "-threads",
                               "1",
                               "-movflags",
                               "+faststart",
                               "-f",
                               "mp4",
                               part + "/clips/" + number + ".mp4"},
                              false, stop);
        transcoder.finish();
    }
}

}  // namespace fleifeisa::host
