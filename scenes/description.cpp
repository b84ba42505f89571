#include <array>
#include <charconv>
#include <limits>
#include <stdexcept>

#include "scenes/acts.h"
#include "scenes/scene.h"

namespace fleifeisa::scenes {
namespace {

constexpr std::array<SceneKind, 10> kKinds = {{
    {"street", "a road with two lanes of cars, people on both pavements, some of whom cross"},
    {"walkers", "people alone: they pass, meet, wait and go on"},
    {"crowd", "many people at once, most of them touching others"},
    {"static", "nobody comes: noise and a slow drift of the light"},
    {"lights", "the street under clouds: the light changes quickly and by a quarter"},
    {"lamp", "the street at dusk: a lamp goes on and off every 20 s"},
    {"dusk", "the street from day to day: dusk, a camera that turns to its grey night mode for 90 s, dawn"},
    {"covered", "the street: a cap before the lens for 10 s, later the picture freezes for 90 s"},
    {"night-ir", "a grey infrared picture at night: warm people and engines, strong noise"},
    {"stage", "a few people on written ways through a yard and a gate, to test rules by: act=NAME"},
}};

[[noreturn]] void bad(std::string_view key, std::string_view value, std::string_view expected) {
    throw std::invalid_argument("scene: " + std::string(key) + "=" + std::string(value) + ": expected " +
                                std::string(expected));
}

template <typename Int>
Int number(std::string_view key, std::string_view value, Int low, Int high) {
    Int result{};
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), result);
    if (error != std::errc() || end != value.data() + value.size() || result < low || result > high)
        bad(key, value, "a whole number from " + std::to_string(low) + " to " + std::to_string(high));
    return result;
}

void setSize(SceneDescription& description, std::string_view value) {
    const std::size_t x = value.find('x');
    if (x == std::string_view::npos) bad("size", value, "WIDTHxHEIGHT, such as 320x240");
    description.width = number("size", value.substr(0, x), 1, 8192);
    description.height = number("size", value.substr(x + 1), 1, 8192);
}

void setAct(SceneDescription& description, std::string_view value) {
    std::string names;
    for (const Act& act : acts()) names += (names.empty() ? "" : ", ") + std::string(act.name);
    if (!findAct(value)) bad("act", value, "one of " + names);
    description.act = value;
}

void set(SceneDescription& description, std::string_view key, std::string_view value) {
    constexpr std::int64_t kMaxFrames = 1'000'000'000;
    if (key == "seed")
        description.seed = number<std::uint64_t>(key, value, 0, std::numeric_limits<std::uint64_t>::max());
    else if (key == "size")
        setSize(description, value);
    else if (key == "frames")
        description.frames = number<std::int64_t>(key, value, 0, kMaxFrames);
    else if (key == "rate")
        description.rate = number(key, value, 1, 1000);
    else if (key == "noise")
        description.noise = number(key, value, 0, 20);
    else if (key == "act")
        setAct(description, value);
    else if (key == "quiet")
        description.quiet = number(key, value, 0, 1'000'000);
    else
        throw std::invalid_argument("scene: unknown setting '" + std::string(key) +
                                    "' (there are seed, size, frames, rate, noise, quiet, act)");
}

}  // namespace

std::span<const SceneKind> sceneKinds() {
    return kKinds;
}

SceneDescription parseScene(std::string_view text) {
    if (text.starts_with("scene:")) text.remove_prefix(6);
    SceneDescription description;
    const std::size_t question = text.find('?');
    description.name = text.substr(0, question);
    bool known = false;
    for (const SceneKind& kind : kKinds) known = known || kind.name == description.name;
    if (!known) {
        std::string names;
        for (const SceneKind& kind : kKinds) names += (names.empty() ? "" : ", ") + std::string(kind.name);
        throw std::invalid_argument("scene: there is no scene '" + description.name + "' (there are " + names + ")");
    }
    if (question == std::string_view::npos) return description;
    std::string_view rest = text.substr(question + 1);
    while (!rest.empty()) {
        const std::string_view item = rest.substr(0, rest.find('&'));
        rest.remove_prefix(std::min(item.size() + 1, rest.size()));
        const std::size_t equals = item.find('=');
        if (equals == std::string_view::npos)
            throw std::invalid_argument("scene: '" + std::string(item) + "' is not of the form key=value");
        set(description, item.substr(0, equals), item.substr(equals + 1));
    }
    return description;
}

}  // namespace fleifeisa::scenes
