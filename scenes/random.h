// The scenes' generator. Never random() or rand(): their state belongs to the analyzer's background model.
#pragma once

#include <cstdint>

namespace fleifeisa::scenes {

/// One step of splitmix64's output function: every input bit reaches every output bit.
constexpr std::uint64_t mix(std::uint64_t z) {
    z += 0x9E3779B97F4A7C15u;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return z ^ (z >> 31);
}

/// A number that depends on all three and on nothing else.
constexpr std::uint64_t mix(std::uint64_t seed, std::uint64_t a, std::uint64_t b) {
    return mix(mix(mix(seed) ^ a) ^ b);
}

/// A stream of draws that begins anywhere.
class Random {
 public:
    constexpr explicit Random(std::uint64_t seed) : state_(seed) {}

    constexpr std::uint64_t next() {
        state_ += 0x9E3779B97F4A7C15u;
        return mix(state_);
    }
    /// 0 to n - 1 (n at most 2^31; the bias of the multiplication is far below what a picture shows).
    constexpr int below(int n) {
        return static_cast<int>(((next() >> 32) * static_cast<std::uint64_t>(n > 0 ? n : 1)) >> 32);
    }
    /// low to high, both included.
    constexpr int between(int low, int high) { return low + below(high - low + 1); }

 private:
    std::uint64_t state_;
};

}  // namespace fleifeisa::scenes
