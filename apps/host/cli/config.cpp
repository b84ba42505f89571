#include "cli/config.h"

#include <toml++/toml.h>
#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <tuple>

#include "camera/output_types.h"
#include "cli/clip_list.h"
#include "cli/commands.h"
#include "cli/nearest.h"
#include "cli/overrides.h"
#include "cli/profile_choice.h"
#include "cli/rules_config.h"
#include "cli/values.h"
#include "common/secrets.h"
#include "hooks/hook_runner.h"
#include "sources/protocols.h"
#include "toml/toml_text.h"

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;

class Loader {
 public:
    Loader(const std::string& path, std::vector<std::string>& errors, ConfigCheck check)
        : path_(path), directory_(fs::absolute(path).parent_path()), errors_(errors), check_(check) {}

    HostConfig load(std::string_view document, const OverridesFile* overrides) {
        HostConfig config;
        std::optional<toml::table> found = parsed(document, path_);
        if (!found) return config;
        toml::table& root = *found;
        if (overrides != nullptr && !overrides->text.empty()) {
            std::optional<toml::table> changes = parsed(overrides->text, overrides->path);
            if (!changes) return config;
            mergeOverrides(root, std::move(*changes), config.warnings,
                           [this](const toml::source_region& where, const std::string& key,
                                  const std::string& message) { complain(where, key, message); });
        }
        Table top(*this, root, "");
        top.keys({"analyzer", "root", "outputs", "rotate", "camera", "state", "timezone", "keep", "on_event", "notify",
                  "http", "clip_times"});
        if (const auto text = top.text("analyzer"))
            config.analyzer = text->find('/') == std::string::npos ? *text : resolved(*text);
        if (const auto text = top.text("root")) root_ = resolved(*text);
        output_directory_ = resolved(top.text("outputs").value_or("out"));
        readRotation(top, "rotate", rotation_);
        readDesk(top, config.desk);
        if (const auto zone = top.text("timezone")) config.timezone = *zone;
        readWeb(top, config.web);
        readCameras(root, config);
        listValues(root, "", config.values);
        std::ranges::stable_sort(faults_, [](const Fault& a, const Fault& b) {
            return std::tie(a.overrides, a.line) < std::tie(b.overrides, b.line);
        });
        for (const Fault& fault : faults_) errors_.push_back(fault.text);
        return config;
    }

 private:
    std::optional<toml::table> parsed(std::string_view document, const std::string& path) {
        try {
            return parseToml(document, path);
        } catch (const TomlFault& fault) {
            errors_.emplace_back(fault.what());
            return std::nullopt;
        }
    }

    /// Typed access to one table, with complaints that name its place.
    class Table {
     public:
        Table(Loader& loader, const toml::table& table, std::string prefix)
            : loader_(loader), table_(table), prefix_(std::move(prefix)) {}

        void keys(std::initializer_list<const char*> known) const {
            for (const auto& [key, node] : table_) {
                const std::string name(key.str());
                if (std::ranges::find(known, name) != known.end()) continue;
                const std::vector<std::string> words(known.begin(), known.end());
                const std::string meant = nearest(name, words);
                const std::string message = "unknown key" + (meant.empty() ? "" : " (did you mean " + meant + "?)");
                loader_.complain(key.source(), prefix_ + name, message);
            }
        }
        void complain(const char* key, const std::string& message) const {
            const toml::node* node = table_.get(key);
            loader_.complain(node ? node->source() : table_.source(), prefix_ + key, message);
        }
        bool has(const char* key) const { return table_.contains(key); }
        std::optional<std::string> text(const char* key) const { return get<std::string>(key, "a text in quotes"); }
        std::optional<bool> flag(const char* key) const { return get<bool>(key, "true or false"); }
        /// Nothing, and no complaint, where it is something else.
        std::optional<bool> isFlag(const char* key) const { return table_[key].value_exact<bool>(); }
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

    void complain(const toml::source_region& where, const std::string& key, const std::string& message) {
        const bool overrides = where.path && *where.path != path_;
        faults_.push_back({overrides, where.begin.line, placeOf(where) + ": " + key + ": " + message});
    }

    /// "cameras.toml:12"
    std::string placeOf(const toml::source_region& where) const {
        return (where.path ? *where.path : path_) + ':' + std::to_string(std::max(1u, where.begin.line));
    }

    bool forClips() const { return check_ == ConfigCheck::kClips; }

    std::string resolved(const std::string& path) const { return (directory_ / path).lexically_normal().string(); }

    /// From when on programs are told: true at once, false never, else off until that moment.
    static std::int64_t notifyFrom(const Table& in, std::int64_t usual) {
        if (!in.has("notify")) return usual;
        if (const std::optional<bool> on = in.isFlag("notify")) return *on ? 0 : CameraConfig::kNever;
        std::int64_t from = usual;
        in.parsed("notify", parseMoment, [&from](std::int64_t moment) { from = moment; });
        return from;
    }

    /// What concerns events: where they are kept, whom they are told.
    void readDesk(const Table& top, DeskSettings& desk) {
        if (const auto text = top.text("state")) desk.state = resolved(*text);
        if (const auto name = top.text("timezone")) try {
                place_ = std::make_shared<const TimeZone>(*name);
            } catch (const std::invalid_argument& error) {
                top.complain("timezone", error.what());
            }
        desk.on_event = top.texts("on_event");
        if (const std::string fault = hookFault(desk.on_event); top.has("on_event") && !fault.empty())
            top.complain("on_event", fault);
        if (const auto pattern = top.text("clip_times"))
            if (const std::string fault = timesFault(*pattern); !fault.empty()) top.complain("clip_times", fault);
        notify_from_ns_ = notifyFrom(top, 0);
        const toml::table* const keep = top.table("keep");
        if (!keep) return;
        const Table in(*this, *keep, "keep.");
        in.keys({"event_days", "minute_days", "near_miss_days", "database", "min_free", "media", "kept"});
        RetentionLimits& limits = desk.retention;
        constexpr std::int64_t kMostDays = 36500;
        limits.event_days = in.integer("event_days", 0, kMostDays).value_or(limits.event_days);
        limits.minute_days = in.integer("minute_days", 0, kMostDays).value_or(limits.minute_days);
        limits.near_miss_days = in.integer("near_miss_days", 0, kMostDays).value_or(limits.near_miss_days);
        const auto bytes = [&in](const char* key, std::int64_t& field) {
            in.parsed(key, parseBytes, [&field](std::uint64_t value) { field = static_cast<std::int64_t>(value); });
        };
        bytes("database", limits.bytes);
        bytes("min_free", limits.min_free);
        bytes("media", limits.media_bytes);
        bytes("kept", limits.kept_bytes);
    }

    void readKeep(const Table& in, CameraConfig& camera) {
        in.keys({"clips", "clip_days", "event_days", "pictures", "before", "after", "continuous"});
        constexpr std::int64_t kMostDays = 36500;
        CameraLimits& limits = camera.keep;
        in.parsed("clips", parseBytes,
                  [&limits](std::uint64_t value) { limits.clip_bytes = static_cast<std::int64_t>(value); });
        limits.clip_days = in.integer("clip_days", 0, kMostDays).value_or(limits.clip_days);
        limits.event_days = in.integer("event_days", 0, kMostDays).value_or(limits.event_days);
        camera.pictures = in.flag("pictures").value_or(camera.pictures);
    }

    void readWeb(const Table& top, WebSettings& web) {
        const toml::table* const http = top.table("http");
        if (!http) return;
        web.on = true;
        const Table in(*this, *http, "http.");
        in.keys({"listen", "url", "certificate", "key", "proxy", "connections", "per_address"});
        in.parsed("listen", parseListen, [&web](const auto& place) { std::tie(web.address, web.port) = place; });
        web.url = in.text("url").value_or("");
        if (!web.url.empty() && !web.url.starts_with("http://") && !web.url.starts_with("https://"))
            in.complain("url", "expected what people type, such as \"https://cams.example.org/eye\"");
        for (const auto& [key, field] : {std::pair{"certificate", &web.certificate}, std::pair{"key", &web.key}})
            if (const auto text = in.text(key)) *field = resolved(*text);
        if (web.certificate.empty() != web.key.empty())
            in.complain(web.key.empty() ? "key" : "certificate", "a certificate and its key belong together");
        web.proxy = in.flag("proxy").value_or(web.proxy);
        constexpr int kMost = 10'000;
        web.connections = static_cast<int>(in.integer("connections", 4, kMost).value_or(web.connections));
        web.per_address = static_cast<int>(in.integer("per_address", 4, kMost).value_or(web.per_address));
    }

    /// What stands in the file, as TOML on one line each, for people.
    void listValues(const toml::table& table, const std::string& prefix, std::vector<ConfigValue>& values) const {
        int index = 0;
        for (const auto& [key, node] : table) {
            const std::string name = prefix + std::string(key.str());
            if (const toml::table* inner = node.as_table(); inner && !inner->is_inline()) {
                listValues(*inner, name + '.', values);
            } else if (const toml::array* array = node.as_array();
                       array && !array->empty() && array->is_array_of_tables()) {
                index = 0;
                for (const toml::node& item : *array) {
                    const auto own = (*item.as_table())["name"].value<std::string>();
                    listValues(*item.as_table(), name + '.' + own.value_or(std::to_string(++index)) + '.', values);
                }
            } else {
                std::ostringstream text;
                text << toml::toml_formatter(node, toml::format_flags::none);
                std::string line = text.str();
                std::ranges::replace(line, '\n', ' ');
                // What a program is told may be anything.
                const bool secret = key.str() == "on_event" || key.str() == "ffmpeg_options";
                values.push_back({name, secret ? "\"***\"" : withoutSecrets(line), placeOf(node.source())});
            }
        }
    }

    void readCameras(const toml::table& root, HostConfig& config) {
        const toml::node* node = root.get("camera");
        const toml::array* cameras = node ? node->as_array() : nullptr;
        if (!node && forClips()) return;
        if (!cameras || cameras->empty() || !cameras->is_array_of_tables()) {
            complain(node ? node->source() : root.source(), "camera", "expected at least one [[camera]] table");
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
        in.keys({"name",           "source",       "device",        "analyzer",       "type",
                 "control",        "outputs",      "rotate",        "size",           "region",
                 "rate",           "profile",      "masks",         "tracks",         "least_area",
                 "shadow_test",    "split_people", "matrix",        "range",          "live",
                 "loop",           "realtime",     "stall_timeout", "answer_timeout", "decoder_threads",
                 "ffmpeg_options", "title",        "credentials",   "redirects",      "start_time",
                 "group",          "link",         "notify",        "zone",           "line",
                 "motion",         "scene",        "stopped",       "private",        "keep",
                 "seamless",       "warm_up",      "clips",         "audio",          "idle_rate",
                 "explain"});
        readIdentity(in, camera);
        readSource(in, camera.source);
        if (check_ == ConfigCheck::kWorld) checkWorld(in, table, camera);
        if (const toml::table* control = in.table("control"))
            readControl(Table(*this, *control, "camera[" + std::to_string(index) + "].control."), camera.control);
        readTracks(in, camera);
        camera.notify_from_ns = notifyFrom(in, notify_from_ns_);
        readClips(in, camera.clips, "camera[" + std::to_string(index) + "].keep.");
        camera.rules = readRules(table, "camera[" + std::to_string(index) + "].", place_,
                                 [this](const toml::source_region& where, const std::string& key,
                                        const std::string& message) { complain(where, key, message); });
        const std::string prefix = "camera[" + std::to_string(index) + "].";
        readPolygons(table, "masks", prefix, camera.source.masks);
        readPolygons(table, "private", prefix, camera.source.private_areas);
        if (const toml::table* keep = in.table("keep")) readKeep(Table(*this, *keep, prefix + "keep."), camera);
        readOutputs(in, camera, "camera[" + std::to_string(index) + "].");
        return camera;
    }

    void readIdentity(const Table& in, CameraConfig& camera) {
        camera.name = in.text("name").value_or("");
        camera.title = in.text("title").value_or("");
        camera.group = in.text("group").value_or("");
        camera.link = in.text("link").value_or("");
        if (!camera.link.empty() && !camera.link.starts_with("http://") && !camera.link.starts_with("https://"))
            in.complain("link", "expected the address of a page, such as \"https://nvr.example.org/gate\"");
        if (!isCameraName(camera.name))
            in.complain("name", "every camera needs a name of 1 to 64 letters, digits, '_' and '-' (a title is free)");
        else if (!names_.insert(camera.name).second)
            in.complain("name", "another camera has the name '" + camera.name + "'");
        const auto device = in.integer("device", 0, 2147483647);
        if (!in.has("device") && !forClips())
            in.complain("device", "every camera needs a device number of its own");
        else if (device && !devices_.insert(*device).second)
            in.complain("device",
                        "another camera has device " + std::to_string(*device) + " (they would share a control file)");
        camera.analyzer.device = static_cast<int>(device.value_or(forClips() ? camera.analyzer.device : 0));
        camera.analyzer.analyzer_id = static_cast<int>(in.integer("analyzer", 0, 2147483647).value_or(1));
        in.parsed("type", parseImageType, [&camera](ImageType type) {
            camera.analyzer.infrared = type == ImageType::kInfrared;
            camera.type_by_picture = type == ImageType::kByPicture;
        });
        camera.seamless = in.flag("seamless");
        camera.explain = in.flag("explain");
        constexpr int kFewest = 8, kMost = 300;
        camera.warm_up = static_cast<int>(in.integer("warm_up", kFewest, kMost).value_or(camera.warm_up));
        camera.answer_seconds = in.number("answer_timeout", 0.1, 86400).value_or(camera.answer_seconds);
    }

    void readSource(const Table& in, SourceOptions& source) {
        source.source = in.text("source").value_or("");
        learnSecretsOf(source.source);
        if (source.source.empty() && !forClips()) in.complain("source", "every camera needs a source");
        if (source.source.starts_with("list:"))
            source.source = "list:" + resolved(source.source.substr(5));
        else if (!isUrl(source.source) && !source.source.starts_with("scene:"))
            source.source = resolved(source.source);
        in.parsed(
            "size", [&source](const std::string& text) { return parseSize(text, source), true; }, [](bool) {});
        in.parsed("region", parseRegion, [&source](const Region& region) { source.region = region; });
        const std::string fault = forClips() ? "" : sourceFault(source);
        if (!fault.empty()) in.complain("source", fault);
        in.parsed("start_time", parseMoment, [&source](std::int64_t moment) { source.start_time_ns = moment; });
        source.redirects = in.flag("redirects").value_or(false);
        source.credentials = in.text("credentials").value_or("");
        if (!source.credentials.empty() && !source.credentials.starts_with("env:"))
            source.credentials = resolved(source.credentials);
        in.parsed("matrix", parseMatrix, [&source](Matrix matrix) { source.matrix = matrix; });
        in.parsed("range", parseFullRange, [&source](bool full) { source.full_range = full; });
        source.rate = in.number("rate", 0, 1000).value_or(0);
        source.idle_rate = in.number("idle_rate", kLeastIdleRate, 1000).value_or(0);
        if (const std::string wrong = idleRateFault(source); !wrong.empty()) in.complain("idle_rate", wrong);
        source.live = in.flag("live");
        source.loop = in.flag("loop").value_or(false);
        source.realtime = in.flag("realtime").value_or(false);
        source.stall_seconds = in.number("stall_timeout", 0.1, 86400).value_or(source.stall_seconds);
        source.decoder_threads =
            static_cast<int>(in.integer("decoder_threads", 0, 64).value_or(source.decoder_threads));
        source.ffmpeg_input_options = in.texts("ffmpeg_options");
    }

    static void readTracks(const Table& in, CameraConfig& camera) {
        FilterChoice filter;
        filter.least_area = in.number("least_area", 0, 1);
        filter.shadow_test = in.flag("shadow_test");
        filter.split_people = in.flag("split_people");
        in.parsed("tracks", parseRawTracks, [&camera](bool raw) { camera.raw_tracks = raw; });
        in.parsed("profile", parseProfile, [&camera](const std::string& name) { camera.profile = name; });
        filter.type = in.has("type");
        applyProfile(camera, filter);
    }

    void readClips(const Table& in, ClipSettings& clips, const std::string& prefix) {
        constexpr double kMostBefore = 60, kMostAfter = 300;  // seconds
        clips.on = in.flag("clips").value_or(clips.on);
        clips.sound = in.flag("audio").value_or(clips.sound);
        const toml::table* const found = in.table("keep");
        if (!found) return;
        const Table keep(*this, *found, prefix);
        clips.before = keep.number("before", 0, kMostBefore).value_or(clips.before);
        clips.after = keep.number("after", 0, kMostAfter).value_or(clips.after);
        keep.parsed("continuous", parseDuration, [&clips](double value) { clips.continuous = value; });
    }

    /// [[[0, 0], [1, 0], [1, 0.2]], ...]: each polygon is complained of where it stands.
    void readPolygons(const toml::table& table, const char* key, const std::string& prefix,
                      std::vector<Mask>& polygons) {
        const toml::node* node = table.get(key);
        if (!node) return;
        const auto fault = [&](const toml::node& where, const std::string& message) {
            complain(where.source(), prefix + key, message);
        };
        constexpr const char* kExpected = "expected a list of polygons, such as [[[0, 0], [1, 0], [1, 0.2]]]";
        if (!node->is_array()) return fault(*node, kExpected);
        for (const toml::node& item : *node->as_array()) {
            Mask mask;
            bool fits = item.is_array();
            for (std::size_t i = 0; fits && i < item.as_array()->size(); ++i) {
                const toml::array* pair = item.as_array()->get(i)->as_array();
                fits = pair && pair->size() == 2 && pair->get(0)->is_number() && pair->get(1)->is_number();
                if (fits) mask.push_back({*pair->get(0)->value<double>(), *pair->get(1)->value<double>()});
            }
            const std::string wrong = fits ? maskFault(mask) : kExpected;
            if (!wrong.empty())
                fault(item, wrong);
            else
                polygons.push_back(mask);
        }
    }

    /// What is not in the file, but must be there when the camera starts.
    static void checkWorld(const Table& in, const toml::table& table, const CameraConfig& camera) {
        const toml::array* outputs = table["outputs"].as_array();
        if (!in.has("outputs") || (outputs && outputs->empty()))
            in.complain("outputs", "the camera has no output: nobody will see what it finds");
        if (camera.source.source.empty() || !sourceFault(camera.source).empty()) return;
        try {
            checkSource(camera.source);
        } catch (const SourceError& error) {
            in.complain("source", error.what());
        }
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

    /// { size = "100 MB", hours = 24, keep = 7 }: what is not said stays as it is.
    void readRotation(const Table& in, const std::string& prefix, Rotation& rotation) {
        const toml::table* const found = in.table("rotate");
        if (!found) return;
        const Table table(*this, *found, prefix + ".");
        table.keys({"size", "hours", "keep"});
        table.parsed("size", parseBytes, [&rotation](std::uint64_t bytes) { rotation.bytes = bytes; });
        if (const auto hours = table.number("hours", 0.001, 100'000)) rotation.seconds = *hours * 3600;
        rotation.keep = static_cast<int>(table.integer("keep", 0, 1'000'000).value_or(rotation.keep));
    }

    void readOutputs(const Table& in, CameraConfig& camera, const std::string& prefix) {
        Rotation rotation = rotation_;
        readRotation(in, prefix + "rotate", rotation);
        for (const std::string& text : in.texts("outputs")) {
            OutputChoice wanted{text.substr(0, text.find('=')), "", {}};
            wanted.policy.rotation = rotation;
            if (text.ends_with("=-"))
                wanted.path = "-";
            else if (text.find('=') != std::string::npos)
                wanted.path = resolved(text.substr(text.find('=') + 1));
            const OutputType* type = findOutputType(wanted.type);
            if (type == nullptr) {
                in.complain("outputs", "there is no output '" + wanted.type + "'");
                continue;
            }
            if (forClips() && !wanted.path.empty())
                in.complain("outputs", "of a clip stand in its result: '" + wanted.type + "' without a path");
            if (wanted.path.empty())
                wanted.path = (fs::path(output_directory_) / camera.name / type->default_file).string();
            camera.outputs.push_back(wanted);
        }
    }

    const std::string path_;
    const fs::path directory_;
    std::vector<std::string>& errors_;
    const ConfigCheck check_;
    struct Fault {
        bool overrides;  ///< in that file, which comes behind the configuration's own
        std::uint32_t line;
        std::string text;
    };
    std::vector<Fault> faults_;
    std::string root_, output_directory_;
    Rotation rotation_;
    std::shared_ptr<const TimeZone> place_ = std::make_shared<const TimeZone>("UTC");
    std::int64_t notify_from_ns_ = 0;
    std::set<std::string> names_;
    std::set<std::int64_t> devices_;
};

}  // namespace

HostConfig parseConfig(std::string_view text, const std::string& path, std::vector<std::string>& errors,
                       ConfigCheck check, const OverridesFile* overrides) {
    return Loader(path, errors, check).load(text, overrides);
}

std::optional<std::string> readConfig(const std::string& path, std::vector<std::string>& errors) {
    constexpr std::uintmax_t kLargest = 16u << 20;
    std::error_code error;
    const std::uintmax_t size = fs::file_size(path, error);
    std::ifstream file(path, std::ios::binary);
    if (error || !file || size > kLargest) {
        errors.push_back(path + ": " + (error ? error.message() : !file ? "cannot be read" : "larger than 16 MiB"));
        return std::nullopt;
    }
    return std::string{std::istreambuf_iterator<char>(file), {}};
}

HostConfig loadConfig(const std::string& path, std::vector<std::string>& errors, ConfigCheck check) {
    const std::optional<std::string> text = readConfig(path, errors);
    return text ? parseConfig(*text, path, errors, check) : HostConfig();
}

}  // namespace fleifeisa::host
