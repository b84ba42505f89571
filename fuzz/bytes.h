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
    Bytes(const std::uint8_t* data, std::size_t size) : at(data), left(size) {}

    bool Empty() const { return left == 0; }
    int Byte() {
        if (left == 0) return 0;
        left--;
        return *at++;
    }
    // lo .. hi, hi - lo < 256
    int Within(int lo, int hi) { return lo + Byte() % (hi - lo + 1); }
    // Up to `size` bytes.
    std::string Text(std::size_t size) {
        size = size < left ? size : left;
        std::string text(reinterpret_cast<const char*>(at), size);
        at += size;
        left -= size;
        return text;
    }

 private:
    const std::uint8_t* at;
    std::size_t left;
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
