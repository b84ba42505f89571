// What can be asked of an analyzer that explains itself, and how: one line each (docs/explain.md).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace fleifeisa::explain {

/// A number for every place of the picture.
enum class Layer { kNone, kDifference, kConfidence, kEdges, kLabels, kAge };

struct Pixel {
    int x, y;
};

struct Question {
    std::uint32_t id = 0;     ///< of the asker's choice, comes back with the answer
    std::int64_t frame = 0;   ///< the Sequence-Number that it is about, 0: whatever frame is the latest
    std::optional<Pixel> at;  ///< the cells of this pixel
    std::optional<int> object;
    Layer layer = Layer::kNone;
};

constexpr std::size_t kMostLine = 120;  ///< bytes of a question, its end not counted

/// "difference", "confidence", "edges", "labels", "age"; "" for none.
const char* nameOf(Layer layer);

/// Parses "ID FRAME [cell X Y] [object ID] [layer NAME]", each word once, in any order behind FRAME.
/// @param question  its id is that of the line where there was one, also with a fault
/// @returns what is wrong with it, "": nothing
std::string parseQuestion(std::string_view line, Question& question);

}  // namespace fleifeisa::explain
