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
    const std::vector<unsigned char>& Render(std::int64_t n);

 private:
    void Block(int row, int col, int h, int w, int level);
    void Brighten(int row, int col);
    void Passers(std::int64_t n);
    void Crowd();
    void Tangle(std::int64_t n);

    const int rows, cols;
    std::vector<std::vector<unsigned char>> empty;  // the scene without anything, with different noise
    std::vector<unsigned char> frame;
};
