#include "archive/cutting.h"

#include <charconv>
#include <cmath>
#include <fstream>
#include <map>
#include <tuple>

#include "archive/child_output.h"

namespace fleifeisa::host {
namespace {

/// Seconds of a file as its container says, 0 where it does not.
double durationOf(const std::string& file) {
    const std::string text = outputOf({"ffprobe", "-v", "quiet", "-protocol_whitelist", "file", "-show_entries",
                                       "format=duration", "-of", "csv=p=0", "file:" + file});
    double seconds = 0;
    std::from_chars(text.data(), text.data() + text.size(), seconds);
    return std::isfinite(seconds) && seconds > 0 ? seconds : 0;
}

/// Lengths that were asked for before, by file, size and time of its last change.
class Lengths {
 public:
    explicit Lengths(const Archive& archive) : path_(archive.path("lengths")) {
        std::ifstream file(path_);
        for (std::string name; std::getline(file, name);) {
            std::uint64_t bytes = 0;
            std::int64_t modified_ns = 0;
            double seconds = 0;
            if (!(file >> bytes >> modified_ns >> seconds)) break;
            file.ignore();
            known_[{name, bytes, modified_ns}] = seconds;
        }
    }
    double of(const Clip& clip) {
        const std::tuple key{clip.file, clip.bytes, clip.modified_ns};
        const auto known = known_.find(key);
        if (known != known_.end()) return known->second;
        const double seconds = known_[key] = durationOf(clip.file);
        std::ofstream file(path_, std::ios::app);
        file.precision(12);
        file << clip.file << '\n' << clip.bytes << ' ' << clip.modified_ns << ' ' << seconds << std::endl;
        return seconds;
    }

 private:
    const std::string path_;
    std::map<std::tuple<std::string, std::uint64_t, std::int64_t>, double> known_;
};

}  // namespace

std::vector<Clip> partsOf(const Clip& clip, std::int64_t duration_ns, const CutSettings& settings) {
    if (settings.length_ns <= 0 || duration_ns < settings.length_ns + settings.length_ns / 2) return {clip};
    const std::int64_t count = (duration_ns + settings.length_ns / 2) / settings.length_ns;
    std::vector<Clip> parts;
    for (std::int64_t i = 0; i < count; ++i) {
        Clip part = clip;
        part.part.from_ns = i * settings.length_ns;
        part.part.to_ns = i + 1 < count ? (i + 1) * settings.length_ns : 0;
        part.part.warm_up_ns = settings.warm_up_ns;
        part.part.tail_ns = settings.tail_ns;
        part.part.parts = static_cast<int>(count);
        parts.push_back(part);
    }
    return parts;
}

std::vector<Clip> cutClips(const Archive& archive, const std::vector<Clip>& clips, const CutSettings& settings) {
    if (settings.length_ns <= 0) return clips;
    Lengths lengths(archive);
    std::vector<Clip> all;
    for (const Clip& clip : clips) {
        const double seconds = clip.file.starts_with("scene:") ? 0 : lengths.of(clip);
        for (Clip& part : partsOf(clip, std::llround(seconds * 1e9), settings)) all.push_back(std::move(part));
    }
    return all;
}

}  // namespace fleifeisa::host
