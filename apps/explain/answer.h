// Answers to questions: JSON of bounded size, and the bytes of a layer.
#pragma once

#include <string>

#include "explain/question.h"
#include "explain/snapshot.h"

namespace fleifeisa::explain {

constexpr std::size_t kMostObjects = 100;     ///< of a frame in an answer
constexpr std::size_t kMostPoints = 1000;     ///< of an outline in an answer
constexpr std::size_t kMostJson = 64 << 10;   ///< bytes; more is an error of this program
constexpr std::size_t kMostPlaces = 1 << 16;  ///< bytes of a layer

struct Answer {
    std::string json;   ///< one object; {"error":"..."} where the question makes no sense
    std::string layer;  ///< a byte for every place, row by row; "" where none was asked for
};

/// Never throws but std::bad_alloc, and leaves everything as it is.
Answer answer(const Question& question, const Snapshot& snapshot);
Answer errorAnswer(const std::string& what);

/// The same as they go over the wire: "ID JSON-BYTES LAYER-BYTES\n", then both.
std::string framed(std::uint32_t id, const Answer& answer);

/// A layer's bytes and what they mean as JSON; for a frame that was searched. @param full  what 255 stands for
struct LayerPicture {
    int width = 0, height = 0;  ///< places
    int step = 0;               ///< pixels from one place to the next, both ways
    double full = 0;
    std::string bytes;
};
LayerPicture layerOf(Layer layer, const Snapshot& snapshot);

}  // namespace fleifeisa::explain
