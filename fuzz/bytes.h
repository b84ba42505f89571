// Reading a fuzzer's input as a sequence of small decisions, and failing loudly.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

// Takes values from the front of the input; behind its end everything is zero.
class Bytes {
 public:
    Bytes(const std::uint8_t* data, std::size_t size) : at_(data), left_(size) {}

    bool empty() const { return left_ == 0; }
    int byte() {
        if (left_ == 0) return 0;
        left_--;
        return *at_++;
    }
    // lo .. hi, hi - lo < 256
    int within(int lo, int hi) { return lo + byte() % (hi - lo + 1); }
    // Up to `size` bytes.
    std::string text(std::size_t size) {
        size = size < left_ ? size : left_;
        std::string text(reinterpret_cast<const char*>(at_), size);
        at_ += size;
        left_ -= size;
        return text;
    }

 private:
    const std::uint8_t* at_;
    std::size_t left_;
};

// Ends the process, so that the fuzzer keeps the input.
#define FUZZ_CHECK(condition, ...)                                                       \
    do {                                                                                 \
        if (!(condition)) {                                                              \
            std::fprintf(stderr, "%s:%d: not so: %s: ", __FILE__, __LINE__, #condition); \
            std::fprintf(stderr, __VA_ARGS__);                                           \
            std::fputc('\n', stderr);                                                    \
            std::abort();                                                                \
        }                                                                                \
    } while (false)
