#include "cli/config.h"

#include <toml++/toml.h>
#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <set>

#include "camera/output_types.h"
#include "cli/commands.h"
#include "cli/values.h"

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;

/// Number of single-character edits between two words, for "did you mean".
std::size_t editDistance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0]++;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
            diagonal = above;
        }
    }
    return row.back();
}

class Loader {
 public:
    Loader(const std::string& path, std::vector<std::string>& errors)
        : path_(path), directory_(fs::absolute(path).parent_path()), errors_(errors) {}

    HostConfig load() {
        HostConfig config;
        toml::table root;
        try {
            root = toml::parse_file(path_);
        } catch (const toml::parse_error& error) {
            const std::string line =
                error.source().begin.line > 0 ? std::to_string(error.source().begin.line) + ": " : " ";
            errors_.push_back(path_ + ":" + line + std::string(error.description()));
            return config;
        }
        Table top(*this, root, "");
        top.keys({"analyzer", "root", "outputs", "camera"});
        if (const auto text = top.text("analyzer"))
            config.analyzer = text->find('/') == std::string::npos ? *text : resolved(*text);
        if (const auto text = top.text("root")) root_ = resolved(*text);
        output_directory_ = resolved(top.text("outputs").value_or("out"));
        readCameras(root, config);
        std::ranges::stable_sort(faults_, {}, &std::pair<std::uint32_t, std::string>::first);
        for (const auto& [line, message] : faults_)
            errors_.push_back(path_ + ":" + std::to_string(line) + ": " + message);
        return config;
    }

 private:
    /// Typed access to one table, with complaints that name its place.
    class Table {
     public:
        Table(Loader& loader, const toml::table& table, std::string prefix)
            : loader_(loader), table_(table), prefix_(std::move(prefix)) {}

        void keys(std::initializer_list<const char*> known) const {
            for (const auto& [key, node] : table_) {
                const std::string name(key.str());
                if (std::ranges::find(known, name) != known.end()) continue;
                const auto nearest =
                    *std::ranges::min_element(known, {}, [&](const char* k) { return editDistance(k, name); });
                std::string message = "unknown key";
                if (editDistance(nearest, name) <= 2) message += std::string(" (did you mean ") + nearest + "?)";
                loader_.complain(key.source().begin.line, prefix_ + name, message);
            }
        }
        void complain(const char* key, const std::string& message) const {
            const toml::node* node = table_.get(key);
            loader_.complain((node ? node->source() : table_.source()).begin.line, prefix_ + key, message);
        }
        bool has(const char* key) const { return table_.contains(key); }
        std::optional<std::string> text(const char* key) const { return get<std::string>(key, "a text in quotes"); }
        std::optional<bool> flag(const char* key) const { return get<bool>(key, "true or false"); }
        std::optional<std::int64_t> integer(const char* key, std::int64_t low, std::int64_t high) const {
            const std::string expected = "a whole number from " + std::to_string(low) + " to " + std::to_string(high);
            const auto value = get<std::int64_t>(key, expected.c_str());
            if (!value || (*value >= low && *value <= high)) return value;
            complain(key, "expected " + expected);
            return std::nullopt;
        }
        std::optional<double> number(const char* key, double low, double high) const {
            const toml::node* node = table_.get(key);
            if (!node) return std::nullopt;
            const auto value = node->value<double>();
            if (node->is_number() && value && *value >= low && *value <= high) return value;
            std::array<char, 80> expected{};
            std::snprintf(expected.data(), expected.size(), "expected a number from %g to %g", low, high);
            complain(key, expected.data());
            return std::nullopt;
        }
        /// A text that a parser of values.h takes.
        template <typename Parse, typename Set>
        void parsed(const char* key, Parse parse, Set set) const {
            const auto value = text(key);
            if (!value) return;
            try {
                set(parse(*value));
            } catch (const ValueError& error) {
                complain(key, error.what());
            }
        }
        std::vector<std::string> texts(const char* key) const {
            std::vector<std::string> values;
            const toml::node* node = table_.get(key);
            if (!node) return values;
            const toml::array* array = node->as_array();
            if (!array ||
                !std::all_of(array->begin(), array->end(), [](const toml::node& n) { return n.is_string(); })) {
                complain(key, "expected a list of texts, such as [\"jsonl\", \"mot=gate.csv\"]");
                return values;
            }
            for (const toml::node& item : *array) values.push_back(*item.value<std::string>());
            return values;
        }
        const toml::table* table(const char* key) const {
            const toml::node* node = table_.get(key);
            if (node && !node->is_table()) complain(key, "expected a table");
            return node ? node->as_table() : nullptr;
        }

     private:
        template <typename T>
        std::optional<T> get(const char* key, const char* expected) const {
            const toml::node* node = table_.get(key);
            if (!node) return std::nullopt;
            if (const auto value = node->value_exact<T>()) return value;
            complain(key, std::string("expected ") + expected);
            return std::nullopt;
        }

        Loader& loader_;
        const toml::table& table_;
        std::string prefix_;
    };

    void complain(std::uint32_t line, const std::string& key, const std::string& message) {
        faults_.emplace_back(line, key + ": " + message);
    }

    std::string resolved(const std::string& path) const { return (directory_ / path).lexically_normal().string(); }

    void readCameras(const toml::table& root, HostConfig& config) {
        const toml::node* node = root.get("camera");
        const toml::array* cameras = node ? node->as_array() : nullptr;
        if (!cameras || cameras->empty() || !cameras->is_array_of_tables()) {
            complain(node ? node->source().begin.line : 1, "camera", "expected at least one [[camera]] table");
            return;
        }
        int index = 0;
        for (const toml::node& item : *cameras) config.cameras.push_back(readCamera(*item.as_table(), ++index));
    }

    CameraConfig readCamera(const toml::table& table, int index) {
        CameraConfig camera;
        camera.service = true;
        camera.analyzer.root = root_;
        camera.source.decoder_threads = 1;  // many cameras share the processors already
        const Table in(*this, table, "camera[" + std::to_string(index) + "].");
        in.keys({"name", "source", "device", "analyzer", "type", "control", "outputs", "size", "region", "rate",
                 "matrix", "range", "live", "loop", "realtime", "stall_timeout", "answer_timeout", "decoder_threads",
                 "ffmpeg_options"});
        readIdentity(in, camera);
        readSource(in, camera.source);
        if (const toml::table* control = in.table("control"))
            readControl(Table(*this, *control, "camera[" + std::to_string(index) + "].control."), camera.control);
        readOutputs(in, camera);
        return camera;
    }

    void readIdentity(const Table& in, CameraConfig& camera) {
        camera.name = in.text("name").value_or("");
        if (camera.name.empty() || camera.name.find('/') != std::string::npos || camera.name.starts_with('.'))
            in.complain("name", "every camera needs a name, without slashes");
        else if (!names_.insert(camera.name).second)
            in.complain("name", "another camera has the name '" + camera.name + "'");
        const auto device = in.integer("device", 0, 2147483647);
        if (!in.has("device"))
            in.complain("device", "every camera needs a device number of its own");
        else if (device && !devices_.insert(*device).second)
            in.complain("device",
                        "another camera has device " + std::to_string(*device) + " (they would share a control file)");
        camera.analyzer.device = static_cast<int>(device.value_or(0));
        camera.analyzer.analyzer_id = static_cast<int>(in.integer("analyzer", 0, 2147483647).value_or(1));
        in.parsed("type", parseInfrared, [&camera](bool infrared) { camera.analyzer.infrared = infrared; });
        camera.answer_seconds = in.number("answer_timeout", 0.1, 86400).value_or(camera.answer_seconds);
    }

    void readSource(const Table& in, SourceOptions& source) {
        source.source = in.text("source").value_or("");
        if (source.source.empty()) in.complain("source", "every camera needs a source");
        if (source.source.starts_with("list:"))
            source.source = "list:" + resolved(source.source.substr(5));
        else if (source.source.find("://") == std::string::npos && !source.source.starts_with("scene:"))
            source.source = resolved(source.source);
        in.parsed("size", parseSize, [&source](auto size) { std::tie(source.width, source.height) = size; });
        in.parsed("region", parseRegion, [&source](const Region& region) { source.region = region; });
        in.parsed("matrix", parseMatrix, [&source](Matrix matrix) { source.matrix = matrix; });
        in.parsed("range", parseFullRange, [&source](bool full) { source.full_range = full; });
        source.rate = in.number("rate", 0.001, 1000).value_or(0);
        source.live = in.flag("live");
        source.loop = in.flag("loop").value_or(false);
        source.realtime = in.flag("realtime").value_or(false);
        source.stall_seconds = in.number("stall_timeout", 0.1, 86400).value_or(source.stall_seconds);
        source.decoder_threads =
            static_cast<int>(in.integer("decoder_threads", 0, 64).value_or(source.decoder_threads));
        source.ffmpeg_input_options = in.texts("ffmpeg_options");
    }

    static void readControl(const Table& in, ControlParameters& control) {
        in.keys({"bgframes", "color_low", "color_high", "ir_low", "ir_high"});
        if (const auto frames = in.integer("bgframes", 1, 1'000'000)) control.bgframes = std::to_string(*frames);
        const auto threshold = [&in](const char* key, std::optional<std::string>& field) {
            const auto value = in.number(key, 0, 1e6);
            if (!value) return;
            std::array<char, 40> text{};
            const auto end = std::to_chars(text.data(), text.data() + text.size(), *value).ptr;
            field = std::string(text.data(), end);
        };
        threshold("color_low", control.color_low);
        threshold("color_high", control.color_high);
        threshold("ir_low", control.ir_low);
        threshold("ir_high", control.ir_high);
    }

    void readOutputs(const Table& in, CameraConfig& camera) {
        for (const std::string& text : in.texts("outputs")) {
            OutputChoice wanted{text.substr(0, text.find('=')), ""};
            if (text.find('=') != std::string::npos) wanted.path = resolved(text.substr(text.find('=') + 1));
            const OutputType* type = findOutputType(wanted.type);
            if (type == nullptr) {
                in.complain("outputs", "there is no output '" + wanted.type + "'");
                continue;
            }
            if (wanted.path.empty())
                wanted.path = (fs::path(output_directory_) / camera.name / type->default_file).string();
            if (!paths_.insert(wanted.path).second)
                in.complain("outputs", wanted.path + " is written by another output");
            camera.outputs.push_back(wanted);
        }
    }

    const std::string path_;
    const fs::path directory_;
    std::vector<std::string>& errors_;
    std::vector<std::pair<std::uint32_t, std::string>> faults_;  ///< line and message
    std::string root_, output_directory_;
    std::set<std::string> names_, paths_;
    std::set<std::int64_t> devices_;
};

}  // namespace

HostConfig loadConfig(const std::string& path, std::vector<std::string>& errors) {
    return Loader(path, errors).load();
}

}  // namespace fleifeisa::host
