#include "tune/parameter_set.h"

#include <array>
#include <charconv>

namespace fleifeisa::host {
namespace {

std::string shortest(double value) {
    std::array<char, 40> text{};
    return {text.data(), std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed).ptr};
}

}  // namespace

std::string candidateText(const ParameterSet& candidate) {
    std::string text = shortest(candidate.low) + "/" + shortest(candidate.high);
    text += candidate.longest_side == ParameterSet::kFull ? " full size"
                                                          : " " + std::to_string(candidate.longest_side) + " px";
    text += candidate.rate == 0 ? " all frames" : " " + shortest(candidate.rate) + "/s";
    text += " learning " + std::to_string(candidate.learning_frames) + " area " + shortest(candidate.least_area);
    if (candidate.shadow_test) text += " shadow";
    if (candidate.split_people) text += " split";
    return text;
}

std::string candidateToml(const ParameterSet& candidate, bool infrared, bool over_rate) {
    std::string text;
    text += candidate.longest_side == ParameterSet::kFull
                ? "size = \"full\"\n"
                : "size = \"" + std::to_string(candidate.longest_side) + "\"\n";
    if (candidate.rate > 0 || over_rate) text += "rate = " + shortest(candidate.rate) + "\n";
    text += "least_area = " + shortest(candidate.least_area) + "\n";
    text += std::string("shadow_test = ") + (candidate.shadow_test ? "true" : "false") + "\n";
    text += std::string("split_people = ") + (candidate.split_people ? "true" : "false") + "\n";
    const std::string type = infrared ? "ir" : "color";
    return text + "[camera.control]\nbgframes = " + std::to_string(candidate.learning_frames) + "\n" + type +
           "_low = " + shortest(candidate.low) + "\n" + type + "_high = " + shortest(candidate.high) + "\n";
}

TrialCost& TrialCost::operator+=(const TrialCost& other) {
    decoder += other.decoder;
    analyzer += other.analyzer;
    filter += other.filter;
    video += other.video;
    return *this;
}

double loss(const Score& score, const Weights& weights) {
    return weights.missed * static_cast<double>(score.missed()) + static_cast<double>(score.wrong);
}

}  // namespace fleifeisa::host
