#include "reliability/crowdscene.h"

#include <algorithm>

namespace {

std::uint64_t mix(std::uint64_t z) {
    z += 0x9E3779B97F4A7C15ULL;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
}
int below(std::uint64_t hash, int n) {
    return static_cast<int>(hash % static_cast<std::uint64_t>(n));
}

constexpr int kNoises = 16;

}  // namespace

CrowdScene::CrowdScene(int rows_in, int cols_in) : rows_(rows_in), cols_(cols_in) {
    for (int i = 0; i < kNoises; i++) {
        std::vector<unsigned char> v(static_cast<std::size_t>(rows_ * cols_ * 3));
        for (std::size_t k = 0; k < v.size(); k++) {
            const auto pixel = static_cast<int>(k / 3), r = pixel / cols_, c = pixel % cols_;
            const int texture = 70 + (r / 9 * 7 + c / 11 * 5) % 40 + static_cast<int>(k % 3) * 10;
            v[k] = static_cast<unsigned char>(texture + below(mix(k * kNoises + static_cast<std::size_t>(i)), 4));
        }
        empty_.push_back(v);
    }
}

void CrowdScene::block(int row, int col, int h, int w, int level) {
    for (int r = std::max(row, 0); r < std::min(row + h, rows_); r++)
        for (int c = std::max(col, 0); c < std::min(col + w, cols_); c++)
            std::fill_n(frame_.begin() + (r * cols_ + c) * 3, 3, static_cast<unsigned char>(level));
}

// One cell, by so little that only itself and the half-covered cells around it are foreground.
void CrowdScene::brighten(int row, int col) {
    for (int r = row; r < std::min(row + 4, rows_); r++)
        for (int i = std::max(col, 0) * 3; i < std::min(col + 4, cols_) * 3; i++) {
            unsigned char& v = frame_[static_cast<std::size_t>(r * cols_ * 3 + i)];
            v = static_cast<unsigned char>(v + 33);
        }
}

// Six things at a time, each for 8 to 23 frames on a straight way; then another one takes its turn.
void CrowdScene::passers(std::int64_t n) {
    for (std::uint64_t lane = 0; lane < 6; lane++) {
        const int life = 8 + static_cast<int>(lane) * 3;
        const std::uint64_t h = mix(static_cast<std::uint64_t>(n / life) * 6 + lane);
        const int age = static_cast<int>(n % life);
        block(below(h, rows_ - 16) + age * (below(h >> 8, 5) - 2),
              below(h >> 16, cols_ - 16) + age * (below(h >> 24, 5) - 2), 6 + below(h >> 32, 12),
              6 + below(h >> 40, 14), 180 + below(h >> 48, 70));
    }
}

// Single cells, just far enough apart to stay components of their own: over 256 x 192 some 300 a frame,
// 5000 records within 25 frames.
void CrowdScene::crowd() {
    for (int r = 0; r < rows_; r += 12)
        for (int c = 0; c < cols_; c += 12) brighten(r, c);
}

// Diagonal staircases: contours of hundreds of points; over 256 x 192 more than one block of the pool holds.
void CrowdScene::tangle(std::int64_t n) {
    for (int stripe = -rows_; stripe < cols_; stripe += 16)
        for (int r = 0; r < rows_; r += 4) brighten(r, stripe + r + static_cast<int>(n % 2) * 4);
}

const std::vector<unsigned char>& CrowdScene::render(std::int64_t n) {
    frame_ = empty_[static_cast<std::size_t>(below(mix(static_cast<std::uint64_t>(n)), kNoises))];
    const std::int64_t phase = n % kEpisode;
    if (phase < 100) return frame_;  // nobody: the tables run empty
    if (phase >= 2000 && phase < 2040)
        crowd();
    else if (phase >= 3500 && phase < 3540)
        tangle(n);
    else
        passers(n);
    return frame_;
}
