#include "cli/clip_config.h"

#include <sysexits.h>
#include <toml++/toml.h>

#include <fstream>
#include <iterator>
#include <sstream>

#include "archive/archive.h"
#include "cli/config.h"
#include "toml/toml_text.h"

namespace fleifeisa::host {
namespace {

/// Keys of a camera on which no result of a clip depends, or which a clip itself decides. All others count, also those
/// of later versions.
constexpr auto kOfNoMatter = std::to_array<const char*>(
    {"name",        "title",     "group",      "link",     "source",        "device",         "analyzer",
     "rotate",      "live",      "loop",       "realtime", "stall_timeout", "answer_timeout", "decoder_threads",
     "credentials", "redirects", "start_time", "notify",   "keep",          "audio"});

std::string formatted(const toml::table& camera, const std::string& timezone) {
    toml::table kept = camera;
    for (const char* key : kOfNoMatter) kept.erase(key);
    kept.insert("name", "clip");
    if (const auto pictures = camera["keep"]["pictures"].value<bool>())
        kept.insert("keep", toml::table{{"pictures", *pictures}});
    const toml::table document{{"timezone", timezone}, {"camera", toml::array{kept}}};
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << toml::toml_formatter(document, toml::format_flags::none) << '\n';
    return text.str();
}

}  // namespace

const std::string* ClipConfigs::find(const std::string& camera) const {
    for (const std::string& name : {camera, std::string(kAnyCamera)})
        if (const auto found = cameras.find(name); found != cameras.end()) return &found->second;
    return nullptr;
}

ClipConfigs parseClipConfigs(const std::string& text, const std::string& path, std::vector<std::string>& errors) {
    const std::size_t before = errors.size();
    const HostConfig checked = parseConfig(text, path, errors, ConfigCheck::kClips);
    ClipConfigs configs;
    if (errors.size() > before) return configs;
    const toml::table root = parseToml(text, path);
    configs.timezone = checked.timezone;
    configs.times = root["clip_times"].value_or(std::string());
    if (const toml::array* cameras = root["camera"].as_array())
        for (const toml::node& camera : *cameras) {
            const toml::table& table = *camera.as_table();
            const std::string name = table["name"].value_or(std::string());
            configs.cameras[name] = formatted(table, configs.timezone);
            if (const auto title = table["title"].value<std::string>()) configs.titles[name] = *title;
        }
    if (configs.cameras.empty()) configs.cameras[kAnyCamera] = formatted({}, configs.timezone);
    return configs;
}

ClipConfigs loadClipConfigs(const std::string& path, std::vector<std::string>& errors) {
    if (path.empty()) return parseClipConfigs("", "no configuration", errors);
    try {
        return parseClipConfigs(readFile(path), path, errors);
    } catch (const std::system_error& error) {
        errors.emplace_back(error.what());
        return {};
    }
}

CameraConfig clipCamera(const std::string& configuration) {
    std::vector<std::string> errors;
    HostConfig config = parseConfig(configuration, "configuration", errors, ConfigCheck::kClips);
    if (!errors.empty() || config.cameras.size() != 1)
        throw SourceError(EX_CONFIG, errors.empty() ? "expected the configuration of one camera" : errors.front());
    CameraConfig camera = std::move(config.cameras.front());
    // As `play`: a clip is short, and learning begins with each.
    if (!camera.control.bgframes) camera.control.bgframes = "50";
    return camera;
}

}  // namespace fleifeisa::host
