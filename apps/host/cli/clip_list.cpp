#include "cli/clip_list.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <tuple>

#include "cli/values.h"
#include "common/text.h"
#include "events/schedule.h"
#include "sources/source.h"

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;

constexpr auto kVideos = std::to_array<std::string_view>(
    {".mp4", ".m4v",  ".mkv", ".avi",  ".mov",  ".ts",  ".mts",   ".m2ts", ".mpg", ".mpeg", ".webm", ".flv", ".wmv",
     ".3gp", ".h264", ".264", ".hevc", ".h265", ".265", ".mjpeg", ".mjpg", ".nut", ".ogv",  ".asf",  ".dav"});

std::string lowered(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

/// The fields of one line; quotes as spreadsheets write them.
std::vector<std::string> fieldsOf(const std::string& line) {
    std::vector<std::string> fields(1);
    bool quoted = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quoted && c == '"' && i + 1 < line.size() && line[i + 1] == '"')
            fields.back() += line[++i];
        else if (c == '"' && (quoted || fields.back().empty()))
            quoted = !quoted;
        else if (c == ',' && !quoted)
            fields.emplace_back();
        else if (c != '\r')
            fields.back() += c;
    }
    return fields;
}

class Lister {
 public:
    Lister(const ClipConfigs& configs, std::vector<std::string>& errors) : configs_(configs), errors_(errors) {}

    void argument(const std::string& text) {
        std::error_code error;
        if (isScene(text))
            add(text, "", std::nullopt, "");
        else if (fs::is_directory(text, error))
            directory(text);
        else if (lowered(fs::path(text).extension()) == ".csv")
            list(text);
        else
            add(text, "", std::nullopt, "");
    }

    std::vector<Clip> take() {
        std::vector<Clip> clips;
        for (auto& [key, clip] : clips_) clips.push_back(std::move(clip));
        return clips;
    }

 private:
    static bool isScene(const std::string& text) { return text.starts_with("scene:"); }

    void directory(const std::string& path) {
        std::error_code error;
        std::vector<std::string> found;
        fs::recursive_directory_iterator entries(path, fs::directory_options::follow_directory_symlink, error), end;
        for (; !error && entries != end; entries.increment(error)) {
            const std::string name = entries->path().filename();
            if (name.starts_with('.')) {
                entries.disable_recursion_pending();
                continue;
            }
            std::error_code ignored;
            if (std::ranges::count(kVideos, lowered(entries->path().extension())) > 0 &&
                entries->is_regular_file(ignored))
                found.push_back(entries->path());
        }
        if (error) errors_.push_back(path + ": " + error.message());
        if (!error && found.empty()) errors_.push_back(path + ": there is no video in this directory");
        for (const std::string& file : found) add(file, "", std::nullopt, "");
    }

    void list(const std::string& path) {
        std::ifstream file(path);
        if (!file) {
            errors_.push_back(path + ": " + std::strerror(errno));
            return;
        }
        std::map<std::string, std::size_t> columns;
        std::size_t number = 0;
        for (std::string line; std::getline(file, line);) {
            const std::string where = path + ':' + std::to_string(++number);
            if (number == 1 && line.starts_with("\xEF\xBB\xBF")) line.erase(0, 3);
            const std::vector<std::string> fields = fieldsOf(line);
            if (fields.size() == 1 && fields[0].empty()) continue;
            if (columns.empty()) {
                if (!header(fields, columns, where)) return;
                continue;
            }
            const auto field = [&](const char* name) {
                const auto column = columns.find(name);
                return column != columns.end() && column->second < fields.size() ? fields[column->second] : "";
            };
            row(fs::path(path).parent_path(), field("camera"), field("file"), field("start"), where);
        }
    }

    bool header(const std::vector<std::string>& fields, std::map<std::string, std::size_t>& columns,
                const std::string& where) {
        for (std::size_t i = 0; i < fields.size(); ++i) columns[lowered(fields[i])] = i;
        if (columns.contains("file")) return true;
        errors_.push_back(where + ": expected the names of the columns first: camera,file,start");
        return false;
    }

    void row(const fs::path& directory, const std::string& camera, const std::string& file, const std::string& start,
             const std::string& where) {
        if (file.empty()) {
            errors_.push_back(where + ": a line without a file");
            return;
        }
        std::optional<std::int64_t> moment;
        if (!start.empty()) try {
                moment = parseMoment(start);
            } catch (const ValueError& error) {
                errors_.push_back(where + ": start: " + error.what());
                return;
            }
        if (!camera.empty() && !isCameraName(camera)) {
            errors_.push_back(where + ": '" + camera + "' is no name of a camera (1 to 64 letters, digits, '_', '-')");
            return;
        }
        add(isScene(file) ? file : (directory / file).string(), camera, moment, where + ": ");
    }

    void add(const std::string& file, const std::string& camera, std::optional<std::int64_t> start,
             const std::string& where) {
        Clip clip;
        if (isScene(file)) {
            SourceOptions options;
            options.source = clip.file = file;
            if (const std::string fault = sourceFault(options); !fault.empty()) {
                errors_.push_back(where + file + ": " + fault);
                return;
            }
        } else if (!look(file, clip, where)) {
            return;
        }
        clip.camera = camera.empty() ? cameraOf(clip.file) : camera;
        clip.start_time_ns = start;
        if (!start && !configs_.times.empty())
            clip.start_time_ns = momentInName(fs::path(clip.file).filename(), configs_.times, configs_.timezone);
        if (configs_.find(clip.camera) == nullptr) {
            errors_.push_back(where + clip.file + ": camera '" + clip.camera +
                              "' stands in the configuration under no name (one of the name '" + kAnyCamera +
                              "' is taken for all others)");
            return;
        }
        clips_.emplace(std::tuple(clip.camera, clip.start_time_ns.value_or(INT64_MIN), clip.file), clip);
    }

    bool look(const std::string& file, Clip& clip, const std::string& where) {
        struct stat status {};
        std::string fault;
        if (::stat(file.c_str(), &status) != 0)
            fault = std::strerror(errno);
        else if (!S_ISREG(status.st_mode))
            fault = "is no file";
        else if (cleanUtf8(file) != file)
            fault = "its name is no UTF-8 without control characters";
        if (!fault.empty()) {
            errors_.push_back(where + cleanUtf8(file) + ": " + fault);
            return false;
        }
        clip.file = fs::absolute(file).lexically_normal();
        clip.bytes = static_cast<std::uint64_t>(status.st_size);
        clip.modified_ns = status.st_mtim.tv_sec * std::int64_t{1'000'000'000} + status.st_mtim.tv_nsec;
        return true;
    }

    std::string cameraOf(const std::string& file) const {
        if (isScene(file)) return cameraName(file);
        const fs::path path(file);
        const auto& known = configs_.cameras;
        for (fs::path folder = path.parent_path(); folder.has_relative_path(); folder = folder.parent_path())
            if (known.contains(folder.filename())) return folder.filename();
        std::string best;
        const std::string name = path.filename();
        for (const auto& [camera, text] : known)
            if (camera.size() > best.size() && name.starts_with(camera) &&
                std::isalnum(static_cast<unsigned char>(name[camera.size()])) == 0)
                best = camera;
        if (!best.empty()) return best;
        if (known.size() == 1 && !known.contains(kAnyCamera)) return known.begin()->first;
        return cameraName(path.parent_path().filename().string() + ".d");
    }

    const ClipConfigs& configs_;
    std::vector<std::string>& errors_;
    std::map<std::tuple<std::string, std::int64_t, std::string>, Clip> clips_;
};

/// Local time of a place as UTC. Of an hour that comes twice it is the first; one that is left out is taken as if
/// clocks had not been changed yet.
std::int64_t toUtc(std::int64_t local_s, const TimeZone& zone) {
    constexpr std::int64_t kDay = 86400;
    const std::int64_t before = zone.offsetAt(local_s - kDay).seconds;
    const std::int64_t after = zone.offsetAt(local_s - before).seconds;
    const bool fits = zone.offsetAt(local_s - after).seconds == after;
    return local_s - (fits ? after : before);
}

/// What the letters of a pattern stand for.
struct Field {
    char letter;
    std::size_t digits;
    int least, most;
};
constexpr auto kFields = std::to_array<Field>(
    {{'Y', 4, 1970, 2200}, {'m', 2, 1, 12}, {'d', 2, 1, 31}, {'H', 2, 0, 23}, {'M', 2, 0, 59}, {'S', 2, 0, 59}});
using Values = std::array<int, kFields.size()>;

const Field* fieldOf(char letter) {
    const auto found = std::ranges::find(kFields, letter, &Field::letter);
    return found == kFields.end() ? nullptr : found;
}

bool matches(std::string_view name, std::string_view pattern, Values& values) {
    for (; !pattern.empty(); pattern.remove_prefix(1)) {
        const bool escaped = pattern[0] == '%' && pattern.size() > 1;
        if (escaped) pattern.remove_prefix(1);
        const Field* field = escaped ? fieldOf(pattern[0]) : nullptr;
        const std::size_t length = field != nullptr ? field->digits : 1;
        if (name.size() < length) return false;
        if (field == nullptr) {
            if (name[0] != pattern[0]) return false;
        } else {
            int& value = values[static_cast<std::size_t>(field - kFields.data())];
            const auto [end, error] = std::from_chars(name.data(), name.data() + length, value);
            if (error != std::errc() || end != name.data() + length || value < field->least || value > field->most)
                return false;
        }
        name.remove_prefix(length);
    }
    return true;
}

}  // namespace

std::string timesFault(const std::string& pattern) {
    for (const char* part : {"%Y", "%m", "%d", "%H", "%M"})
        if (pattern.find(part) == std::string::npos)
            return std::string("expected %Y, %m, %d, %H, %M and perhaps %S, such as \"%Y%m%d_%H%M%S\"; ") + part +
                   " is missing";
    return "";
}

std::optional<std::int64_t> momentInName(const std::string& name, const std::string& pattern,
                                         const std::string& timezone) {
    for (std::size_t at = 0; at < name.size(); ++at) {
        Values values{};
        if (!matches(std::string_view(name).substr(at), pattern, values)) continue;
        namespace chrono = std::chrono;
        const chrono::year_month_day date{chrono::year(values[0]), chrono::month(static_cast<unsigned>(values[1])),
                                          chrono::day(static_cast<unsigned>(values[2]))};
        if (!date.ok()) continue;
        const std::int64_t local_s = chrono::sys_days(date).time_since_epoch().count() * std::int64_t{86400} +
                                     values[3] * 3600 + values[4] * 60 + values[5];
        return toUtc(local_s, TimeZone(timezone)) * 1'000'000'000;
    }
    return std::nullopt;
}

std::vector<Clip> listClips(const std::vector<std::string>& arguments, const ClipConfigs& configs,
                            std::vector<std::string>& errors) {
    Lister lister(configs, errors);
    for (const std::string& argument : arguments) lister.argument(argument);
    return lister.take();
}

}  // namespace fleifeisa::host
