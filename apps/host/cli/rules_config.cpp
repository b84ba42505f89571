#include "cli/rules_config.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <optional>
#include <set>
#include <sstream>

#include "cli/values.h"

namespace fleifeisa::host {
namespace {

constexpr double kDay = 86400;  ///< seconds; no span of a rule is longer

bool isName(const std::string& text) {
    return !text.empty() && text.size() <= 64 && std::ranges::all_of(text, [](unsigned char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
    });
}
constexpr const char* kNameExpected = "expected a name of 1 to 64 letters, digits, _ and -";

/// Why these are not the ends of a line, "" where they are.
std::string lineFault(const std::vector<Point>& points) {
    if (points.size() != 2) return "expected 2 points";
    for (const Point& p : points)
        if (!(p.x >= 0 && p.x <= 1 && p.y >= 0 && p.y <= 1)) return "expected points within 0 to 1";
    if (points[0].x == points[1].x && points[0].y == points[1].y) return "two points in a row are the same";
    return "";
}

/// One table of the file; every getter tells what it does not like and gives nothing then.
class Section {
 public:
    Section(const toml::table& table, std::string prefix, const Complain& complain)
        : table_(table), prefix_(std::move(prefix)), complain_(complain) {}

    void keys(std::initializer_list<std::string_view> known) const {
        for (const auto& [key, node] : table_)
            if (std::ranges::find(known, key.str()) == known.end())
                complain_(key.source(), prefix_ + std::string(key.str()), "unknown key");
    }
    void fault(const char* key, const std::string& message) const {
        const toml::node* node = table_.get(key);
        complain_(node ? node->source() : table_.source(), prefix_ + key, message);
    }
    std::string text(const char* key) const {
        const toml::node* node = table_.get(key);
        const auto value = node ? node->value_exact<std::string>() : std::string();
        if (!value) fault(key, "expected a text in quotes");
        return value.value_or("");
    }
    void number(const char* key, double& value, double greatest) const {
        if (const toml::node* node = table_.get(key)) read(*node, key, value, greatest);
    }
    std::vector<Point> points() const {
        std::vector<Point> points;
        const toml::array* list = table_.get("points") ? table_.get("points")->as_array() : nullptr;
        bool good = list != nullptr;
        for (std::size_t i = 0; good && i < list->size(); ++i) {
            const toml::array* pair = list->get(i)->as_array();
            good = pair && pair->size() == 2 && pair->get(0)->is_number() && pair->get(1)->is_number();
            if (good) points.push_back({*pair->get(0)->value<double>(), *pair->get(1)->value<double>()});
        }
        if (good) return points;
        fault("points", "expected a list of points, such as [[0.1,0.5],[0.9,0.5],[0.9,1.0]]");
        return {};
    }
    Limits limits(const std::shared_ptr<const TimeZone>& place) const {
        Limits limits;
        number("least_age", limits.least_age, kDay);
        number("cooldown", limits.cooldown, kDay);
        if (table_.contains("when")) try {
                // "": always; what is laid over a file's times may take them away.
                if (const std::string when = text("when"); table_.get("when")->is_string() && !when.empty())
                    limits.when = Schedule(when, place);
            } catch (const std::invalid_argument& error) {
                fault("when", error.what());
            }
        if (const toml::node* node = table_.get("least_size")) leastSize(*node, limits.least_size);
        return limits;
    }

 private:
    void read(const toml::node& node, const std::string& key, double& value, double greatest) const {
        const auto found = node.value<double>();
        if (node.is_number() && found && *found >= 0 && *found <= greatest) {
            value = *found;
            return;
        }
        std::array<char, 60> expected{};
        std::snprintf(expected.data(), expected.size(), "expected a number from 0 to %g", greatest);
        complain_(node.source(), prefix_ + key, expected.data());
    }
    void leastSize(const toml::node& node, LeastSize& size) const {
        const toml::table* both = node.as_table();
        if (!both) {
            read(node, "least_size", size.near, 1);
            size.far = size.near;
            return;
        }
        const Section in(*both, prefix_ + "least_size.", complain_);
        in.keys({"near", "far"});
        for (const char* key : {"near", "far"})
            if (!both->contains(key)) in.fault(key, "near and far go together");
        in.number("near", size.near, 1);
        in.number("far", size.far, 1);
    }

    const toml::table& table_;
    const std::string prefix_;
    const Complain& complain_;
};

class Reader {
 public:
    Reader(const toml::table& camera, const std::string& prefix, const std::shared_ptr<const TimeZone>& place,
           const Complain& complain)
        : camera_(camera), prefix_(prefix), place_(place), complain_(complain) {}

    Rules read() {
        rules_.timezone = place_->name();
        Section(camera_, prefix_, complain_).number("stopped", rules_.stopped, kDay);
        section("motion", [this](const Section& in) {
            in.keys({"off_delay", "when", "least_size", "least_age", "cooldown"});
            in.number("off_delay", rules_.off_delay, kDay);
            rules_.motion = in.limits(place_);
        });
        section("scene", [this](const Section& in) {
            in.keys({"lost_after", "back_after", "hold"});
            in.number("lost_after", rules_.lost_after, kDay);
            in.number("back_after", rules_.back_after, kDay);
            in.number("hold", rules_.hold, kDay);
        });
        each("zone", [this](const Section& in) { readZone(in); });
        each("line", [this](const Section& in) { readLine(in); });
        return std::move(rules_);
    }

 private:
    template <typename Read>
    void section(const char* key, Read read) {
        const toml::node* node = camera_.get(key);
        if (!node) return;
        if (const toml::table* table = node->as_table())
            read(Section(*table, prefix_ + key + '.', complain_));
        else
            complain_(node->source(), prefix_ + key, "expected a table");
    }
    template <typename Read>
    void each(const char* key, Read read) {
        const toml::node* node = camera_.get(key);
        if (!node) return;
        const toml::array* list = node->as_array();
        if (!list || list->empty() || !list->is_array_of_tables()) {
            complain_(node->source(), prefix_ + key, std::string("expected [[camera.") + key + "]] tables");
            return;
        }
        int index = 0;
        for (const toml::node& item : *list)
            read(Section(*item.as_table(), prefix_ + key + '[' + std::to_string(++index) + "].", complain_));
    }
    std::string name(const Section& in) {
        const std::string name = in.text("name");
        if (!isName(name))
            in.fault("name", kNameExpected);
        else if (!names_.insert(name).second)
            in.fault("name", "another zone or line has the name '" + name + "'");
        return name;
    }
    void readZone(const Section& in) {
        in.keys({"name", "title", "points", "dwell", "stopped", "when", "least_size", "least_age", "cooldown"});
        ZoneRule zone{name(in), in.text("title"), in.points(), in.limits(place_), 0, 0};
        in.number("dwell", zone.dwell, kDay);
        in.number("stopped", zone.stopped, kDay);
        if (const std::string fault = polygonFault(zone.points); !fault.empty())
            in.fault("points", fault);
        else
            rules_.zones.push_back(std::move(zone));
    }
    void readLine(const Section& in) {
        in.keys({"name", "title", "points", "when", "least_size", "least_age", "cooldown"});
        LineRule line{name(in), in.text("title"), {}, {}, in.limits(place_)};
        const std::vector<Point> points = in.points();
        if (const std::string fault = lineFault(points); !fault.empty()) return in.fault("points", fault);
        line.from = points[0];
        line.to = points[1];
        rules_.lines.push_back(std::move(line));
    }

    const toml::table& camera_;
    const std::string& prefix_;
    const std::shared_ptr<const TimeZone>& place_;
    const Complain& complain_;
    Rules rules_;
    std::set<std::string> names_;
};

/// "NAME=X,Y X,Y ..."
std::pair<std::string, std::vector<Point>> parseNamedPoints(const std::string& text) {
    constexpr const char* kExpected =
        "expected NAME=X,Y X,Y ... with shares of the picture, such as yard=0.1,0.5 0.9,0.5 0.9,1";
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos) throw ValueError(kExpected);
    std::pair<std::string, std::vector<Point>> result{text.substr(0, equals), {}};
    if (!isName(result.first)) throw ValueError(kNameExpected);
    std::istringstream words(text.substr(equals + 1));
    for (std::string word; words >> word;) {
        Point point;
        const char* const end = word.data() + word.size();
        const auto x = std::from_chars(word.data(), end, point.x);
        if (x.ec != std::errc() || x.ptr == end || *x.ptr != ',') throw ValueError(kExpected);
        const auto y = std::from_chars(x.ptr + 1, end, point.y);
        if (y.ec != std::errc() || y.ptr != end) throw ValueError(kExpected);
        result.second.push_back(point);
    }
    return result;
}

}  // namespace

Rules readRules(const toml::table& camera, const std::string& prefix, const std::shared_ptr<const TimeZone>& place,
                const Complain& complain) {
    return Reader(camera, prefix, place, complain).read();
}

ZoneRule parseZone(const std::string& text) {
    auto [name, points] = parseNamedPoints(text);
    if (const std::string fault = polygonFault(points); !fault.empty()) throw ValueError(fault);
    return {name, "", std::move(points), {}, 0, 0};
}

LineRule parseLine(const std::string& text) {
    const auto [name, points] = parseNamedPoints(text);
    if (const std::string fault = lineFault(points); !fault.empty()) throw ValueError(fault);
    return {name, "", points[0], points[1], {}};
}

void addRule(Rules& rules, const std::string& text) {
    if (text.starts_with("zone:"))
        rules.zones.push_back(parseZone(text.substr(5)));
    else if (text.starts_with("line:") || parseNamedPoints(text).second.size() == 2)
        rules.lines.push_back(parseLine(text.starts_with("line:") ? text.substr(5) : text));
    else
        rules.zones.push_back(parseZone(text));
    if (const std::string fault = rulesFault(rules); !fault.empty()) throw ValueError(fault);
}

std::string rulesFault(const Rules& rules) {
    std::set<std::string> names;
    const auto doubled = [&names](const auto& rule) { return !names.insert(rule.name).second; };
    if (std::ranges::any_of(rules.zones, doubled) || std::ranges::any_of(rules.lines, doubled))
        return "two zones or lines have the same name";
    return "";
}

}  // namespace fleifeisa::host
