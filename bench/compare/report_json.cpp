#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "bench/compare/report.h"

namespace bench {
namespace {

using Json = nlohmann::ordered_json;

Json samplesJson(const Samples& samples) {
    return {{"first_seconds", samples.first},
            {"learning_mean_seconds", samples.meanLearning()},
            {"detection_mean_seconds", samples.meanDetection()},
            {"detection_seconds", samples.detection},
            {"objects", samples.objects},
            {"peak_kib", samples.peak_kib}};
}

Json roundJson(const RoundResult& round) {
    Json json;
    json["analyzer"] = samplesJson(round.analyzer);
    if (round.mog2) json["mog2"] = samplesJson(*round.mog2);
    if (round.cnt) json["cnt"] = samplesJson(*round.cnt);
    if (!round.failure.empty()) json["failure"] = round.failure;
    return json;
}

template <class Result>
Json roundsJson(const Result& result) {
    Json json = {{"name", result.name}, {"width", result.width}, {"height", result.height}};
    for (const RoundResult& round : result.rounds) json["rounds"].push_back(roundJson(round));
    return json;
}

Json pointsJson(const std::vector<SweepPoint>& points) {
    Json json = Json::array();
    for (const SweepPoint& point : points) {
        Json entry = {{"width", point.width}, {"height", point.height}};
        if (point.objects_shown >= 0.0) entry["objects_shown"] = point.objects_shown;
        for (const RoundResult& round : point.rounds) entry["rounds"].push_back(roundJson(round));
        json.push_back(entry);
    }
    return json;
}

void save(const std::string& path, const Json& json) {
    std::ofstream file(path);
    file << json.dump(1) << "\n";
    if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

}  // namespace

void writeJson(const std::string& path, const SuiteOptions& options, const SuiteResult& result,
               const std::string& label) {
    Json json = {{"when", result.when},
                 {"label", label},
                 {"clock_hertz", result.clock_hertz},
                 {"opencv", OpenCvPipeline::description()},
                 {"footage", result.footage_found},
                 {"core", options.core},
                 {"block", options.block}};
    for (const InputResult& input : result.inputs) json["inputs"].push_back(roundsJson(input));
    for (const WorstResult& worst : result.worst) json["worst"].push_back(roundsJson(worst));
    save(path, json);
}

void writeJson(const std::string& path, const SweepResult& result, const std::string& label) {
    save(path, {{"label", label}, {"sizes", pointsJson(result.sizes)}, {"objects", pointsJson(result.objects)}});
}

}  // namespace bench
