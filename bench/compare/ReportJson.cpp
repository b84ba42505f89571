#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "bench/compare/Report.h"

namespace bench {
namespace {

using Json = nlohmann::ordered_json;

Json SamplesJson(const Samples& samples) {
    return {{"first_seconds", samples.first},
            {"learning_mean_seconds", samples.MeanLearning()},
            {"detection_mean_seconds", samples.MeanDetection()},
            {"detection_seconds", samples.detection},
            {"objects", samples.objects},
            {"peak_kib", samples.peak_kib}};
}

Json RoundJson(const RoundResult& round) {
    Json json;
    json["analyzer"] = SamplesJson(round.analyzer);
    if (round.mog2) json["mog2"] = SamplesJson(*round.mog2);
    if (round.cnt) json["cnt"] = SamplesJson(*round.cnt);
    if (!round.failure.empty()) json["failure"] = round.failure;
    return json;
}

template <class Result>
Json RoundsJson(const Result& result) {
    Json json = {{"name", result.name}, {"width", result.width}, {"height", result.height}};
    for (const RoundResult& round : result.rounds) json["rounds"].push_back(RoundJson(round));
    return json;
}

Json PointsJson(const std::vector<SweepPoint>& points) {
    Json json = Json::array();
    for (const SweepPoint& point : points) {
        Json entry = {{"width", point.width}, {"height", point.height}};
        if (point.objects_shown >= 0.0) entry["objects_shown"] = point.objects_shown;
        for (const RoundResult& round : point.rounds) entry["rounds"].push_back(RoundJson(round));
        json.push_back(entry);
    }
    return json;
}

void Save(const std::string& path, const Json& json) {
    std::ofstream file(path);
    file << json.dump(1) << "\n";
    if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

}  // namespace

void WriteJson(const std::string& path, const SuiteOptions& options, const SuiteResult& result,
               const std::string& label) {
    Json json = {{"when", result.when},
                 {"label", label},
                 {"clock_hertz", result.clock_hertz},
                 {"opencv", OpenCvPipeline::Description()},
                 {"footage", result.footage_found},
                 {"core", options.core},
                 {"block", options.block}};
    for (const InputResult& input : result.inputs) json["inputs"].push_back(RoundsJson(input));
    for (const WorstResult& worst : result.worst) json["worst"].push_back(RoundsJson(worst));
    Save(path, json);
}

void WriteJson(const std::string& path, const SweepResult& result, const std::string& label) {
    Save(path, {{"label", label}, {"sizes", PointsJson(result.sizes)}, {"objects", PointsJson(result.objects)}});
}

}  // namespace bench
