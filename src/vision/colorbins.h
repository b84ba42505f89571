// Counts over 4096 colour bins. A component has pixels of few colours, so only the bins in use are kept: the histogram
// of a small object takes tens of bytes instead of 8 KB, and thousands of them can be made in a frame.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <utility>

class ColorBins {
 public:
    static constexpr int kBins = 4096;
    using Counts = std::int16_t[kBins];

    // All counts are 0. All-zero bytes are one of these, too.
    ColorBins() = default;
    ColorBins(const ColorBins& other) { Assign(other.entries, other.used); }
    ColorBins(ColorBins&& other) noexcept { Swap(other); }
    ColorBins& operator=(ColorBins other) noexcept {
        Swap(other);
        return *this;
    }
    ~ColorBins() { std::free(entries); }

    // The count of a bin, 0..4095.
    std::int16_t operator[](int bin) const;

    // All counts become 0.
    void Clear() { used = 0; }

    // Adds the counts to `counts`. They wrap at 16 bits.
    void AddTo(Counts& counts) const;
    // Takes over `counts`, which are all 0 afterwards. Throws std::bad_alloc.
    void Take(Counts& counts);

 private:
    struct Entry {
        std::uint16_t bin;
        std::int16_t count;
    };

    void Assign(const Entry* from, int n);
    void Swap(ColorBins& other) noexcept {
        std::swap(entries, other.entries);
        std::swap(used, other.used);
        std::swap(capacity, other.capacity);
    }

    Entry* entries = nullptr;  // `used` of them, in the order of their bins; room for `capacity`
    int used = 0, capacity = 0;
};
