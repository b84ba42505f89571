// Runs that tests of the outputs feed: frames with made-up objects, no analyzer.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "outputs/output.h"

namespace fleifeisa::host::test {

struct Frame {
    bool restart = false;  ///< a fresh analyzer answers from here on
    bool detection = true;
    int width = 64, height = 48;
    std::vector<AnalyzerObject> objects = {};
    std::vector<Track> tracks = {};
    double foreground = 0;
};

struct Scenario {
    CameraInfo camera;
    std::int64_t first_ns = 0, step_ns = 100'000'000;
    std::vector<Frame> frames;
    std::vector<Track> ended;  ///< with the source
};

inline AnalyzerObject object(int id, int left, int top, int width, int height, int density) {
    return {1, 1, id, left, top, width, height, density};
}

/// The run with its objects followed as `--tracks raw` does.
Scenario followed(Scenario run);
/// Frame `index` of a run as the host would hand it over.
void feed(Output& output, const Scenario& run, std::size_t index);
/// The end of the source, and of the output.
void end(Output& output, const Scenario& run);
/// Makes the output, feeds everything and finishes it.
void play(const Scenario& run, const std::string& type, const std::string& path, const FilePolicy& policy = {});

/// The run that docs/outputs.md shows.
Scenario documentedRun();
/// Hundreds of frames with everything that is awkward: ids that repeat and wrap, several objects of id 0, twins, gaps
/// around the length that ends a track, restarts, boxes beyond the frame, times of day, a name that needs escapes.
Scenario awkwardRun(std::uint32_t seed);

std::string readFile(const std::string& path);
bool exists(const std::string& path);

}  // namespace fleifeisa::host::test
