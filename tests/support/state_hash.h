// The tracker's internal state after a frame: as a readable trace, and as one line of hashes for the golden files.
#pragma once

#include <cstdint>
#include <string>

#include "support/replay.h"

// 64-bit FNV-1a over little-endian bytes. Every NaN counts as the same one, so that processors agree.
class StateHash {
 public:
    void bytes(const std::string& bytes);
    void integer(std::int32_t v);
    void real(double v);
    // Of any width: the hash of the values as 32-bit numbers.
    template <class Integer>
    void ints(const Integer* v, std::size_t n) {
        for (std::size_t i = 0; i < n; i++) integer(v[i]);
    }
    void doubles(const double* v, std::size_t n);
    std::uint64_t value = 14695981039346656037ULL;
};

// A block of lines: thresholds and counters, hashes of the pixel and cell arrays and of the background, and in
// detection frames every record of the frame with its parents and its contour (* marks the polygon's vertices).
std::string traceBlock(const ReplayedFrame& frame);

// "<frame> <f|l|d> <hash of each part in GoldenPart order>", 8 hex digits a part.
std::string goldenLine(const ReplayedFrame& frame);
// Names the first part in which two golden lines differ; empty where they are equal.
std::string goldenDifference(const std::string& expected, const std::string& actual);
