// What users would build from OpenCV instead: a background subtractor, 3x3 open and close, connected components with
// statistics, outer contours, polygons.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace bench {

enum class Subtractor { kMog2, kCnt };

// Seconds of thread time for one frame, by stage.
struct StageSeconds {
    static constexpr size_t kStages = 4;
    static constexpr std::array<const char*, kStages> kNames{"subtractor", "morphology", "components", "contours"};
    std::array<double, kStages> stage{};
    [[nodiscard]] double total() const { return stage[0] + stage[1] + stage[2] + stage[3]; }
};

class OpenCvPipeline {
 public:
    OpenCvPipeline(Subtractor kind, int width, int height);
    ~OpenCvPipeline();
    OpenCvPipeline(const OpenCvPipeline&) = delete;
    OpenCvPipeline& operator=(const OpenCvPipeline&) = delete;

    // Runs all stages on one frame of width x height interleaved 8-bit RGB.
    StageSeconds run(const uint8_t* rgb);
    // Objects (outer contours) of the latest frame.
    [[nodiscard]] size_t objects() const;

    // False where the program was built without OpenCV; the rest of this class then throws.
    static bool available();
    // Version, dispatched vector extensions and thread count, on one line.
    static std::string description();

 private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace bench
