#include "explain/question.h"

#include <array>
#include <charconv>
#include <limits>

namespace fleifeisa::explain {
namespace {

constexpr std::array<std::pair<const char*, Layer>, 5> kLayers = {{{"difference", Layer::kDifference},
                                                                   {"confidence", Layer::kConfidence},
                                                                   {"edges", Layer::kEdges},
                                                                   {"labels", Layer::kLabels},
                                                                   {"age", Layer::kAge}}};

/// Words of a line, between single blanks.
class Words {
 public:
    explicit Words(std::string_view line) : rest_(line) {}
    bool any() const { return !rest_.empty(); }
    std::string_view next() {
        const std::size_t blank = rest_.find(' ');
        const std::string_view word = rest_.substr(0, blank);
        rest_.remove_prefix(blank == std::string_view::npos ? rest_.size() : blank + 1);
        return word;
    }
    /// Digits only. False where it is no such number.
    template <class Number>
    bool number(Number& value) {
        const std::string_view word = next();
        if (word.empty() || word[0] == '-') return false;
        const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
        return error == std::errc() && end == word.data() + word.size();
    }

 private:
    std::string_view rest_;
};

std::string takeCell(Words& words, Question& question) {
    Pixel at{};
    if (question.at || !words.number(at.x) || !words.number(at.y)) return "cell: expected X Y, once";
    question.at = at;
    return "";
}

std::string takeObject(Words& words, Question& question) {
    int id = 0;
    if (question.object || !words.number(id)) return "object: expected a number, once";
    question.object = id;
    return "";
}

std::string takeLayer(Words& words, Question& question) {
    const std::string_view name = words.next();
    for (const auto& [known, layer] : kLayers) {
        if (name != known || question.layer != Layer::kNone) continue;
        question.layer = layer;
        return "";
    }
    return "layer: expected difference, confidence, edges, labels or age, once";
}

}  // namespace

const char* nameOf(Layer layer) {
    for (const auto& [name, known] : kLayers)
        if (known == layer) return name;
    return "";
}

std::string parseQuestion(std::string_view line, Question& question) {
    question = {};
    Words words(line);
    if (!words.number(question.id)) return "expected a number in front";
    if (!words.number(question.frame)) return "expected the number of a frame, 0: the latest";
    while (words.any()) {
        const std::string_view what = words.next();
        const std::string fault = what == "cell"     ? takeCell(words, question)
                                  : what == "object" ? takeObject(words, question)
                                  : what == "layer"  ? takeLayer(words, question)
                                                     : "expected cell, object or layer";
        if (!fault.empty()) return fault;
    }
    return "";
}

}  // namespace fleifeisa::explain
