#include "events/rule_steps.h"

#include <array>
#include <charconv>
#include <cmath>
#include <stdexcept>

namespace fleifeisa::host {
namespace {

constexpr std::array<std::string_view, 9> kSteps = {"tick",   "lost", "back",       "tell", "clock",
                                                    "finish", "map",  "parameters", "rules"};

std::string shortest(double value) {
    std::array<char, 40> text{};
    return {text.data(), std::to_chars(text.data(), text.data() + text.size(), value).ptr};
}

struct Malformed : std::runtime_error {
    Malformed() : std::runtime_error("malformed") {}
};

/// Takes words from the front of a text.
class Words {
 public:
    explicit Words(std::string_view text) : rest_(text) {}

    std::string_view word() {
        const std::size_t begin = std::min(rest_.find_first_not_of(" \n"), rest_.size());
        const std::size_t end = std::min(rest_.find_first_of(" \n", begin), rest_.size());
        const std::string_view found = rest_.substr(begin, end - begin);
        rest_.remove_prefix(end);
        if (found.empty()) throw Malformed();
        return found;
    }
    std::string_view peek() const { return Words(rest_).atEnd() ? std::string_view() : Words(rest_).word(); }
    void literal(std::string_view expected) {
        if (word() != expected) throw Malformed();
    }
    double real() { return toNumber<double>(word()); }
    std::int64_t integer() { return toNumber<std::int64_t>(word()); }
    double named(std::string_view name) {
        literal(name);
        return real();
    }
    Point point() {
        const std::string_view pair = word();
        const std::size_t comma = std::min(pair.find(','), pair.size() - 1);
        return {toNumber<double>(pair.substr(0, comma)), toNumber<double>(pair.substr(comma + 1))};
    }
    /// "..." to the end of the line.
    std::string quoted() {
        const std::size_t open = rest_.find('"'), close = rest_.find("\"\n", open + 1);
        if (open == std::string_view::npos || close == std::string_view::npos) throw Malformed();
        const std::string text(rest_.substr(open + 1, close - open - 1));
        rest_.remove_prefix(close + 1);
        return text;
    }
    /// What is left behind one blank.
    std::string rest() const { return std::string(rest_.substr(rest_.starts_with(' ') ? 1 : 0)); }
    bool atEnd() const { return rest_.find_first_not_of(" \n") == std::string_view::npos; }

 private:
    template <class Number>
    static Number toNumber(std::string_view text) {
        Number value{};
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (error != std::errc() || end != text.data() + text.size()) throw Malformed();
        if constexpr (std::is_floating_point_v<Number>)
            if (!std::isfinite(value)) throw Malformed();
        return value;
    }

    std::string_view rest_;
};

Limits takeLimits(Words& words, const std::shared_ptr<const TimeZone>& place) {
    Limits limits;
    limits.least_size.near = words.named("least_size");
    limits.least_size.far = words.real();
    limits.least_age = words.named("least_age");
    limits.cooldown = words.named("cooldown");
    words.literal("when");
    if (const std::string when = words.quoted(); !when.empty()) limits.when = Schedule(when, place);
    return limits;
}

/// rulesText() backwards.
Rules takeRules(Words& words) {
    Rules rules;
    words.literal("timezone");
    rules.timezone = words.word();
    const auto place = std::make_shared<const TimeZone>(rules.timezone);
    words.literal("motion");
    rules.off_delay = words.named("off_delay");
    rules.motion = takeLimits(words, place);
    rules.stopped = words.named("stopped");
    words.literal("scene");
    rules.lost_after = words.named("lost_after");
    rules.back_after = words.named("back_after");
    rules.hold = words.named("hold");
    while (!words.atEnd()) {
        const bool zone = words.peek() == "zone";
        words.literal(zone ? "zone" : "line");
        const std::string name(words.word());
        if (!zone) {
            const Point from = words.point(), to = words.point();
            rules.lines.push_back({name, "", from, to, takeLimits(words, place)});
            continue;
        }
        ZoneRule rule{name, "", {}, {}, 0, 0};
        while (words.peek() != "dwell") rule.points.push_back(words.point());
        rule.dwell = words.named("dwell");
        rule.stopped = words.named("stopped");
        rule.limits = takeLimits(words, place);
        if (!polygonFault(rule.points).empty()) throw Malformed();
        rules.zones.push_back(std::move(rule));
    }
    return rules;
}

std::string mapText(const PictureMap& map) {
    return shortest(map.left) + ' ' + shortest(map.top) + ' ' + shortest(map.width) + ' ' + shortest(map.height);
}

PictureMap takeMap(Words& words) {
    PictureMap map;
    map.left = words.real();
    map.top = words.real();
    map.width = words.real();
    map.height = words.real();
    return map;
}

/// What parses with `take`, nothing where that fails.
template <class Take>
auto parsed(std::string_view text, Take take) -> std::optional<decltype(take(std::declval<Words&>()))> {
    try {
        Words words(text);
        return take(words);
    } catch (const std::runtime_error&) {
        return std::nullopt;
    } catch (const std::invalid_argument&) {  // a time zone that is not known here, active times
        return std::nullopt;
    }
}

}  // namespace

std::string setupText(const RuleSetup& setup) {
    const EngineStart& start = setup.start;
    return std::to_string(start.next_event) + (start.wall_clock ? " dates " : " file ") +
           (start.parameters.empty() ? "-" : start.parameters) + ' ' + mapText(start.map) + '\n' +
           rulesText(setup.rules);
}

std::optional<RuleSetup> parseSetup(std::string_view text) {
    return parsed(text, [](Words& words) {
        RuleSetup setup;
        setup.start.next_event = words.integer();
        const std::string_view times = words.word();
        if ((times != "dates" && times != "file") || setup.start.next_event < 1) throw Malformed();
        setup.start.wall_clock = times == "dates";
        setup.start.parameters = words.word();
        if (setup.start.parameters == "-") setup.start.parameters.clear();
        setup.start.map = takeMap(words);
        setup.rules = takeRules(words);
        return setup;
    });
}

std::string stepText(const RuleStep& step) {
    std::string text = std::string(kSteps[step.kind]) + ' ' + std::to_string(step.time_ns);
    switch (step.kind) {
        case RuleStep::kTell:
            return text + ' ' + nameOf(step.event) + ' ' + (step.change.empty() ? "-" : step.change) + ' ' +
                   (step.value ? shortest(*step.value) : "-") + ' ' + step.text;
        case RuleStep::kClock:
            return text + ' ' + std::to_string(step.from_ns);
        case RuleStep::kFinish:
        case RuleStep::kParameters:
            return text + ' ' + step.change;
        case RuleStep::kMap:
            return text + ' ' + mapText(step.map);
        case RuleStep::kRules:
            return text + '\n' + rulesText(step.rules);
        default:
            return text;
    }
}

std::optional<RuleStep> parseStep(std::string_view text) {
    return parsed(text, [](Words& words) {
        RuleStep step;
        const std::string_view name = words.word();
        std::size_t kind = 0;
        while (kind < kSteps.size() && kSteps[kind] != name) ++kind;
        if (kind == kSteps.size()) throw Malformed();
        step.kind = static_cast<RuleStep::Kind>(kind);
        step.time_ns = words.integer();
        if (step.kind == RuleStep::kClock) step.from_ns = words.integer();
        if (step.kind == RuleStep::kFinish || step.kind == RuleStep::kParameters) step.change = words.word();
        if (step.kind == RuleStep::kMap) step.map = takeMap(words);
        if (step.kind == RuleStep::kRules) step.rules = takeRules(words);
        if (step.kind == RuleStep::kTell) {
            const auto event = eventKindOf(words.word());
            if (!event) throw Malformed();
            step.event = *event;
            step.change = words.word();
            if (step.change == "-") step.change.clear();
            if (words.peek() == "-")
                words.word();
            else
                step.value = words.real();
            step.text = words.rest();
        }
        return step;
    });
}

const RuleResults& takeStep(RuleEngine& engine, const RuleStep& step) {
    switch (step.kind) {
        case RuleStep::kLost:
            return engine.sourceLost(step.time_ns);
        case RuleStep::kBack:
            return engine.sourceBack(step.time_ns);
        case RuleStep::kTell:
            return engine.tell(step.event, step.change, step.text, step.time_ns, step.value);
        case RuleStep::kClock:
            return engine.clockStepped(step.from_ns, step.time_ns);
        case RuleStep::kFinish:
            return engine.finish(step.time_ns, step.change);
        case RuleStep::kMap:
            engine.setMap(step.map);
            break;
        case RuleStep::kParameters:
            engine.setParameters(step.change);
            break;
        case RuleStep::kRules:
            return engine.setRules(step.rules, step.time_ns);
        case RuleStep::kTick:
            break;
    }
    return engine.tick(step.time_ns);
}

std::string resultsText(const RuleResults& results) {
    std::string text;
    for (const CameraEvent& event : results.events) {
        text += eventJson(event);
        for (const int object : event.objects) text += ' ' + std::to_string(object);
        text += '\n';
    }
    for (const Crossing& crossing : results.crossings)
        text +=
            crossing.line + (crossing.forward ? " forward " : " backward ") + std::to_string(crossing.time_ns) + '\n';
    return text;
}

}  // namespace fleifeisa::host
