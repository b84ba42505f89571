#include "tune/truth.h"

#include <toml++/toml.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "toml/toml_text.h"

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;

constexpr double kLongest = 7 * 86400.0;         // seconds
constexpr std::uintmax_t kLargest = 256u << 20;  // bytes of a file of boxes

std::int64_t nanosecondsOf(double seconds) {
    return std::llround(seconds * 1e9);
}

/// Whole, or nothing where it cannot be read.
std::optional<std::string> contentOf(const fs::path& path) {
    std::error_code error;
    const std::uintmax_t size = fs::file_size(path, error);
    std::ifstream file(path, std::ios::binary);
    if (error || !file || size > kLargest) return std::nullopt;
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

class TruthReader {
 public:
    TruthReader(std::string path, std::string prefix, std::vector<std::string>& errors)
        : path_(std::move(path)), prefix_(std::move(prefix)), errors_(errors) {}

    Truth read(const toml::table& table) {
        Truth truth;
        known(table, "", {"nothing", "judged", "thing", "boxes", prefix_.empty() ? "" : "file"});
        const bool nothing = table["nothing"].value_or(false);
        if (const toml::node* node = table.get("nothing"); node && !node->is_boolean())
            complain(*node, "nothing", "expected true or false");
        if (const toml::node* node = table.get("judged")) truth.judged = span(*node, "judged");
        if (const toml::node* node = table.get("thing")) readThings(*node, truth);
        if (const toml::node* node = table.get("boxes")) readBoxes(*node, truth);
        const bool told = table.contains("thing") || table.contains("boxes");
        if (nothing && told) complain(table, "nothing", "either nothing was there, or the things that are listed");
        if (!nothing && !told)
            complain(table, "nothing", "expected nothing = true, [[thing]] tables, or a [boxes] table");
        return truth;
    }

 private:
    void complain(const toml::node& where, const std::string& key, const std::string& message) {
        const std::string name = prefix_ + key;
        errors_.push_back(path_ + ":" + std::to_string(where.source().begin.line) + ": " +
                          (name.empty() ? "" : name + ": ") + message);
    }

    void known(const toml::table& table, const std::string& prefix, std::initializer_list<std::string_view> keys) {
        for (const auto& [key, node] : table)
            if (std::ranges::find(keys, key.str()) == keys.end())
                complain(node, prefix + std::string(key.str()), "unknown key");
    }

    std::optional<double> number(const toml::table& table, const char* key, const std::string& prefix, double low,
                                 double high) {
        const toml::node* const node = table.get(key);
        if (!node) return std::nullopt;
        const auto value = node->value<double>();
        if (node->is_number() && value && *value >= low && *value <= high) return value;
        std::array<char, 80> text{};
        std::snprintf(text.data(), text.size(), "expected a number from %g to %g", low, high);
        complain(*node, prefix + key, text.data());
        return std::nullopt;
    }

    /// Two numbers from 0 to `high`.
    std::optional<std::pair<double, double>> two(const toml::node& node, const std::string& key, double high,
                                                 const char* expected) {
        const toml::array* const array = node.as_array();
        if (array && array->size() == 2 && array->get(0)->is_number() && array->get(1)->is_number()) {
            const double first = *array->get(0)->value<double>(), second = *array->get(1)->value<double>();
            if (first >= 0 && second >= 0 && first <= high && second <= high) return std::pair(first, second);
        }
        complain(node, key, expected);
        return std::nullopt;
    }

    std::optional<TimeSpan> span(const toml::node& node, const std::string& key) {
        constexpr const char* kExpected = "expected two moments in seconds, the earlier first, such as [12, 80.5]";
        const auto moments = two(node, key, kLongest, kExpected);
        if (!moments) return std::nullopt;
        if (moments->second <= moments->first) {
            complain(node, key, kExpected);
            return std::nullopt;
        }
        return TimeSpan{nanosecondsOf(moments->first), nanosecondsOf(moments->second)};
    }

    void readThings(const toml::node& node, Truth& truth) {
        const toml::array* const things = node.as_array();
        if (!things || !things->is_array_of_tables()) return complain(node, "thing", "expected [[thing]] tables");
        int index = 0;
        for (const toml::node& item : *things) {
            const toml::table& table = *item.as_table();
            const std::string prefix = "thing[" + std::to_string(++index) + "].";
            known(table, prefix, {"name", "from", "to", "about", "within"});
            Thing thing;
            thing.name = table["name"].value<std::string>().value_or(std::to_string(index));
            const auto from = number(table, "from", prefix, 0, kLongest), to = number(table, "to", prefix, 0, kLongest);
            if (!table.contains("from") || !table.contains("to"))
                complain(table, prefix + "from", "a thing needs from and to, in seconds since the first frame");
            else if (from && to && *to < *from)
                complain(table, prefix + "to", "lies before from");
            thing.span = {nanosecondsOf(from.value_or(0)), nanosecondsOf(to.value_or(0))};
            if (const toml::node* about = table.get("about"))
                if (const auto place = two(*about, prefix + "about", 1,
                                           "expected a place in shares of the picture, such as [0.6, 0.7]"))
                    thing.about = Point{place->first, place->second};
            thing.within = number(table, "within", prefix, 0.01, 1).value_or(thing.within);
            truth.things.push_back(std::move(thing));
        }
    }

    void readBoxes(const toml::node& node, Truth& truth) {
        const toml::table* const table = node.as_table();
        if (!table) return complain(node, "boxes", "expected a [boxes] table");
        known(*table, "boxes.", {"file", "rate", "size"});
        const auto file = (*table)["file"].value<std::string>();
        const auto rate = number(*table, "rate", "boxes.", 0.01, 1000);
        const toml::node* const size = table->get("size");
        const auto sides =
            size ? two(*size, "boxes.size", 16384, "expected width and height, such as [768, 576]") : std::nullopt;
        if (!file || !table->contains("rate") || !size) return complain(*table, "boxes", "needs file, rate and size");
        if (!rate || !sides) return;
        if (sides->first < 1 || sides->second < 1) return complain(*size, "boxes.size", "expected width and height");
        const fs::path boxes = fs::path(path_).parent_path() / *file;
        const auto text = contentOf(boxes);
        if (!text) return complain(*table->get("file"), "boxes.file", boxes.string() + ": cannot be read");
        truth.box_step_ns = nanosecondsOf(1 / *rate);
        readLines(*text, boxes.string(), *rate, *sides, truth);
    }

    void readLines(const std::string& text, const std::string& path, double rate, std::pair<double, double> size,
                   Truth& truth) {
        std::map<std::int64_t, Thing> things;
        std::istringstream lines(text);
        std::string line;
        for (int number = 1; std::getline(lines, line); ++number) {
            if (line.empty() || line == "\r" || line.starts_with('#')) continue;
            std::array<double, 7> values{0, 0, 0, 0, 0, 0, 1};
            if (!parseLine(line, values)) {
                errors_.push_back(path + ":" + std::to_string(number) +
                                  ": expected frame,id,left,top,width,height and perhaps a confidence");
                return;
            }
            const std::int64_t time = nanosecondsOf((values[0] - 1) / rate);
            const double left = (values[2] - 1) / size.first, top = (values[3] - 1) / size.second;
            const TruthBox box{time, {left, top, left + values[4] / size.first, top + values[5] / size.second}};
            if (values[6] == 0) {
                truth.ignored.push_back(box);
            } else {
                Thing& thing = things[std::llround(values[1])];
                thing.boxes.push_back(box);
            }
        }
        std::ranges::stable_sort(truth.ignored, {}, &TruthBox::time_ns);
        for (auto& [number, thing] : things) {
            thing.name = std::to_string(number);
            std::ranges::stable_sort(thing.boxes, {}, &TruthBox::time_ns);
            thing.span = {thing.boxes.front().time_ns, thing.boxes.back().time_ns};
            truth.things.push_back(std::move(thing));
        }
    }

    /// At least six numbers with commas between; the seventh is kept where there is one.
    static bool parseLine(const std::string& line, std::array<double, 7>& values) {
        const char *at = line.data(), *const end = line.data() + line.size();
        std::size_t count = 0;
        while (count < values.size()) {
            while (at != end && *at == ' ') ++at;
            const auto [next, error] = std::from_chars(at, end, values[count]);
            if (error != std::errc() || !std::isfinite(values[count])) return false;
            ++count;
            at = next;
            while (at != end && (*at == ' ' || *at == '\r')) ++at;
            if (at == end || *at != ',') break;
            ++at;
        }
        constexpr double kMost = 1e9;  // frames, ids and pixels
        return count >= 6 && values[0] >= 1 && values[4] > 0 && values[5] > 0 &&
               std::ranges::all_of(values, [](double value) { return std::abs(value) <= kMost; });
    }

    const std::string path_, prefix_;
    std::vector<std::string>& errors_;
};

std::optional<toml::table> parsed(const std::string& text, const std::string& path, std::vector<std::string>& errors) {
    try {
        return parseToml(text, path);
    } catch (const TomlFault& fault) {
        errors.emplace_back(fault.what());
        return std::nullopt;
    }
}

}  // namespace

Truth parseTruth(const std::string& text, const std::string& path, std::vector<std::string>& errors) {
    const auto table = parsed(text, path, errors);
    return table ? TruthReader(path, "", errors).read(*table) : Truth{};
}

TruthBook::TruthBook(const std::string& file, std::vector<std::string>& errors) : file_(file) {
    if (file_.empty()) return;
    const auto text = contentOf(file_);
    if (!text) {
        errors.push_back(file_ + ": cannot be read");
        return;
    }
    const auto table = parsed(*text, file_, errors);
    if (!table) return;
    const toml::array* const clips = (*table)["clip"].as_array();
    if (!clips || !clips->is_array_of_tables()) {
        errors.push_back(file_ + ": expected [[clip]] tables, each with file = \"NAME\"");
        return;
    }
    int index = 0;
    for (const toml::node& item : *clips) {
        const toml::table& clip = *item.as_table();
        const std::string key = "clip[" + std::to_string(++index) + "].";
        const auto name = clip["file"].value<std::string>();
        const std::string where = file_ + ":" + std::to_string(item.source().begin.line) + ": " + key + "file: ";
        if (!name) {
            errors.push_back(where + "expected the name of the clip's file");
            continue;
        }
        if (!truths_.emplace(*name, TruthReader(file_, key, errors).read(clip)).second)
            errors.push_back(where + "this clip has a table already");
    }
}

std::optional<Truth> TruthBook::of(const std::string& clip, std::vector<std::string>& errors) const {
    if (!file_.empty()) {
        const auto found = truths_.find(fs::path(clip).filename().string());
        return found == truths_.end() ? std::nullopt : std::optional(found->second);
    }
    const fs::path beside = fs::path(clip).replace_extension(".toml");
    if (!fs::exists(beside)) return std::nullopt;
    const auto text = contentOf(beside);
    if (!text) {
        errors.push_back(beside.string() + ": cannot be read");
        return std::nullopt;
    }
    return parseTruth(*text, beside.string(), errors);
}

}  // namespace fleifeisa::host
