#include "archive/own_part.h"

#include <algorithm>
#include <charconv>
#include <sstream>
#include <stdexcept>

#include "archive/archive.h"
#include "common/text.h"

namespace fleifeisa::host {
namespace {

std::int64_t startOf(const std::string& line, const std::string& file) {
    constexpr std::string_view kKey = "\"start_ns\":";
    const std::size_t at = line.find(kKey);
    std::int64_t value = 0;
    if (at == std::string::npos ||
        std::from_chars(line.data() + at + kKey.size(), line.data() + line.size(), value).ec != std::errc())
        throw std::runtime_error(file + ": a line without a start");
    return value;
}

}  // namespace

void readPart(SourceOptions& source, const ClipPart& part) {
    const std::int64_t first_ns = std::max<std::int64_t>(0, part.from_ns - part.warm_up_ns);
    const auto option = [&source](const char* name, std::int64_t value_ns) {
        source.ffmpeg_input_options.emplace_back(name);
        source.ffmpeg_input_options.push_back(fixedPoint(value_ns / 1000, 6));
    };
    // Before the input: it is decoded from the key frame before, and what comes earlier is thrown away.
    if (first_ns > 0) option("-ss", first_ns);
    if (part.to_ns > 0) option("-t", part.to_ns + part.tail_ns - first_ns);
    source.start_time_ns = source.start_time_ns.value_or(0) + first_ns;
}

void takeOwnPart(const std::string& directory, const ClipSummary& summary) {
    const ClipPart& part = summary.clip.part;
    if (part.whole()) return;
    const std::int64_t begin_ns = summary.clip.start_time_ns.value_or(0);
    for (const char* name : {"tracks.jsonl", "events.jsonl"}) {
        const std::string file = directory + '/' + name;
        std::istringstream lines(readFile(file));
        std::string kept;
        for (std::string line; std::getline(lines, line);) {
            const std::int64_t start_ns = startOf(line, file) - begin_ns;
            if (start_ns >= part.from_ns && (part.to_ns == 0 || start_ns < part.to_ns)) kept += line + '\n';
        }
        writeFile(file, kept);
    }
}

}  // namespace fleifeisa::host
