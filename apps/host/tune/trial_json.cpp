// What goes between the search and the processes that try candidates.
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "tune/trial.h"

namespace fleifeisa::host {
namespace {

using Json = nlohmann::ordered_json;

/// Part of every order, and so of its result's name: with other rules of scoring all of them are made anew.
constexpr int kForm = 1;

Json jsonOf(const ParameterSet& c) {
    return {c.low, c.high, c.longest_side, c.rate, c.learning_frames, c.least_area, c.shadow_test, c.split_people};
}

ParameterSet candidateFrom(const Json& json) {
    return {json.at(0), json.at(1), json.at(2), json.at(3), json.at(4), json.at(5), json.at(6), json.at(7)};
}

Json jsonOf(const std::vector<TruthBox>& boxes) {
    Json json = Json::array();
    for (const TruthBox& one : boxes)
        json.push_back({one.time_ns, one.box.left, one.box.top, one.box.right, one.box.bottom});
    return json;
}

std::vector<TruthBox> boxesFrom(const Json& json) {
    std::vector<TruthBox> boxes;
    for (const Json& one : json) boxes.push_back({one.at(0), {one.at(1), one.at(2), one.at(3), one.at(4)}});
    return boxes;
}

Json jsonOf(const Truth& truth) {
    Json things = Json::array();
    for (const Thing& thing : truth.things) {
        Json one{{"name", thing.name}, {"span", {thing.span.from_ns, thing.span.to_ns}}, {"within", thing.within}};
        if (thing.about) one["about"] = {thing.about->x, thing.about->y};
        if (!thing.boxes.empty()) one["boxes"] = jsonOf(thing.boxes);
        things.push_back(std::move(one));
    }
    Json json{{"things", std::move(things)}, {"ignored", jsonOf(truth.ignored)}, {"box_step_ns", truth.box_step_ns}};
    if (truth.judged) json["judged"] = {truth.judged->from_ns, truth.judged->to_ns};
    return json;
}

Truth truthFrom(const Json& json) {
    const auto span = [](const Json& of) { return TimeSpan{of.at(0), of.at(1)}; };
    Truth truth;
    if (json.contains("judged")) truth.judged = span(json.at("judged"));
    for (const Json& one : json.at("things")) {
        Thing thing{one.at("name"), span(one.at("span")), std::nullopt, one.at("within"), {}};
        if (one.contains("about")) thing.about = Point{one.at("about").at(0), one.at("about").at(1)};
        if (one.contains("boxes")) thing.boxes = boxesFrom(one.at("boxes"));
        truth.things.push_back(std::move(thing));
    }
    truth.ignored = boxesFrom(json.at("ignored"));
    truth.box_step_ns = json.at("box_step_ns");
    return truth;
}

template <typename Read>
auto parsed(const char* what, const std::string& text, Read read) {
    try {
        return read(Json::parse(text));
    } catch (const nlohmann::json::exception& error) {
        throw std::runtime_error(std::string("no ") + what + ": " + error.what());
    }
}

}  // namespace

std::string toJson(const TrialOrder& order) {
    Json candidates = Json::array();
    for (const ParameterSet& one : order.candidates) candidates.push_back(jsonOf(one));
    return Json{{"form", kForm},
                {"present", order.present},
                {"learned_ns", order.learned_ns},
                {"candidates", candidates},
                {"truth", jsonOf(order.truth)}}
        .dump(-1, ' ', false, Json::error_handler_t::replace);
}

TrialOrder trialOrderOf(const std::string& text) {
    return parsed("order of a trial", text, [](const Json& json) {
        TrialOrder order{json.at("present"), {}, json.at("learned_ns"), truthFrom(json.at("truth"))};
        for (const Json& one : json.at("candidates")) order.candidates.push_back(candidateFrom(one));
        return order;
    });
}

std::string toJson(const TrialResults& all) {
    Json results = Json::array();
    for (const TrialResult& one : all.results) {
        const Score& s = one.score;
        const TrialCost& c = one.cost;
        results.push_back({{"things", s.things},
                           {"found", s.found},
                           {"again", s.again},
                           {"wrong", s.wrong},
                           {"judged_ns", s.judged_ns},
                           {"present", s.present},
                           {"seen", s.seen},
                           {"cost", {c.decoder, c.analyzer, c.filter, c.video}}});
    }
    const ClipFacts& f = all.facts;
    return Json{{"size", {f.width, f.height}},
                {"frames", f.frames},
                {"length_ns", f.length_ns},
                {"step_ns", f.step_ns},
                {"results", results}}
        .dump();
}

TrialResults trialResultsOf(const std::string& text) {
    return parsed("result of a trial", text, [](const Json& json) {
        TrialResults all;
        all.facts = {json.at("size").at(0), json.at("size").at(1), json.at("frames"), json.at("length_ns"),
                     json.at("step_ns")};
        for (const Json& one : json.at("results")) {
            const Json& cost = one.at("cost");
            all.results.push_back({{one.at("things"), one.at("found"), one.at("again"), one.at("wrong"),
                                    one.at("judged_ns"), one.at("present"), one.at("seen")},
                                   {cost.at(0), cost.at(1), cost.at(2), cost.at(3)}});
        }
        return all;
    });
}

}  // namespace fleifeisa::host
