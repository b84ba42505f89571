// Frames for long runs: a textured, slightly noisy scene in which small things keep coming, moving and going, with
// episodes that drive the tables to their bounds. Frame n is a function of n alone.
#pragma once

#include <cstdint>
#include <vector>

class CrowdScene {
 public:
    static constexpr std::int64_t kEpisode = 5000;  // frames between two crowds, and between two tangles

    CrowdScene(int rows, int cols);
    // rows x cols x 3 bytes, valid until the next call.
    const std::vector<unsigned char>& render(std::int64_t n);

 private:
    void block(int row, int col, int h, int w, int level);
    void brighten(int row, int col);
    void passers(std::int64_t n);
    void crowd();
    void tangle(std::int64_t n);

    const int rows_, cols_;
    std::vector<std::vector<unsigned char>> empty_;  // the scene without anything, with different noise
    std::vector<unsigned char> frame_;
};
