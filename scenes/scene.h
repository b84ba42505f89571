// Synthetic scenes of a fixed camera: for tests, benchmarks, and for trying the system without a camera.
//
// A frame is a pure function of the scene's description and the frame's number, in integer arithmetic with a generator
// of its own: the same bytes on every machine, in any order of frames, whatever else draws random numbers.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace fleifeisa::scenes {

/// A scene's description, as in "street?seed=3&size=320x240&frames=600".
struct SceneDescription {
    std::string name = "street";
    std::uint64_t seed = 1;
    int width = 320;            ///< pixels, 1 to 8192
    int height = 240;           ///< pixels, 1 to 8192
    std::int64_t frames = 600;  ///< length; 0: without an end
    int rate = 10;   ///< frames a second, 1 to 1000; gives the frames their times; of the content, only those of lamp,
                     ///< cap and dusk
    int noise = 2;   ///< sensor noise: standard deviation in units of 0.9 grey levels, 0 to 20
    int quiet = 60;  ///< the first frames show the empty scene, so that a background can be learnt
    std::string act = "walk";  ///< of "stage", see acts.h
};

struct SceneKind {
    std::string_view name;
    std::string_view summary;  ///< one line for a listing
};

/// All scenes there are.
std::span<const SceneKind> sceneKinds();

/// Reads "name?key=value&..." (a leading "scene:" is allowed); whatever is not given keeps its default.
/// @throws std::invalid_argument with a message that names the key and what it takes
SceneDescription parseScene(std::string_view text);

/// What really is where: the visible part of one person or car.
struct TruthBox {
    int id;  ///< unique in the scene, kept over its whole way
    int left, top, width, height;
    bool person;  ///< else a car
};

class Scene {
 public:
    /// Paints the empty scene. @throws std::invalid_argument where the description is out of range
    explicit Scene(const SceneDescription& description);
    ~Scene();
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    const SceneDescription& description() const;
    /// Frame `number` (from 0) as width * height * 3 bytes, rows from the top, R G B interleaved.
    void render(std::int64_t number, std::span<std::uint8_t> rgb);
    /// Everything that shows in frame `number`, clipped to the frame, far things first.
    std::vector<TruthBox> truth(std::int64_t number) const;

 private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace fleifeisa::scenes
