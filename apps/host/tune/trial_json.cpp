// What goes between the search and the processes that try candidates.
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "tune/trial.h"

namespace fleifeisa::host {
namespace {

using Json = nlohmann::ordered_json;

Json jsonOf(const ParameterSet& c) {
    return {c.low, c.high, c.longest_side, c.rate, c.learning_frames, c.least_area, c.shadow_test, c.split_people};
}

ParameterSet candidateFrom(const Json& json) {
    return {json.at(0), json.at(1), json.at(2), json.at(3), json.at(4), json.at(5), json.at(6), json.at(7)};
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
    return Json{
        {"clip", order.clip}, {"present", order.present}, {"learned_ns", order.learned_ns}, {"candidates", candidates}}
        .dump(-1, ' ', false, Json::error_handler_t::replace);
}

TrialOrder trialOrderOf(const std::string& text) {
    return parsed("order of a trial", text, [](const Json& json) {
        TrialOrder order{json.at("clip"), json.at("present"), {}, json.at("learned_ns")};
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
