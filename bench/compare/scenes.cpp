#include "bench/compare/scenes.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "scenes/scene.h"

namespace bench {
namespace {

constexpr size_t kCalmFrames = 4;  // detection frames before a worst scene's event
constexpr int kCell = 4;           // pixels; side of the analyzer's cells
constexpr double kTurn = 2.0 * std::numbers::pi;

// xorshift64*: small, fast, the same numbers everywhere.
class Draw {
 public:
    explicit Draw(uint64_t seed) : state_(seed * 2654435769u + 88172645463325252u) {}
    uint32_t next() {
        state_ ^= state_ >> 12;
        state_ ^= state_ << 25;
        state_ ^= state_ >> 27;
        return static_cast<uint32_t>((state_ * 2685821657736338717u) >> 32);
    }
    // Uniform in [low, high].
    int range(int low, int high) { return low + static_cast<int>(next() % static_cast<uint32_t>(high - low + 1)); }

 private:
    uint64_t state_;
};

uint8_t clamp(double value) {
    return static_cast<uint8_t>(std::clamp(value, 0.0, 255.0));
}

Clip emptyClip(const char* name, int width, int height, SceneLength length) {
    Clip clip;
    clip.name = name;
    clip.width = width;
    clip.height = height;
    clip.pixels.resize(clip.frameBytes() * (length.learning + length.detection));
    return clip;
}

uint8_t* pixel(Clip& clip, size_t frame, int r, int c) {
    return clip.frame(frame) + (static_cast<size_t>(r) * static_cast<size_t>(clip.width) + static_cast<size_t>(c)) * 3;
}

// Fills every frame with colour(frame, event, r, c, channel), event counting the frames since the event began and
// negative before it; adds noise of -2..2.
template <class Colour>
Clip paint(const char* name, int width, int height, SceneLength length, Colour colour) {
    Clip clip = emptyClip(name, width, height, length);
    Draw draw(1);
    for (size_t frame = 0; frame < clip.frames(); ++frame) {
        const int event = static_cast<int>(frame) - static_cast<int>(length.learning + kCalmFrames);
        for (int r = 0; r < height; ++r) {
            for (int c = 0; c < width; ++c) {
                uint8_t* place = pixel(clip, frame, r, c);
                uint32_t noise = draw.next();
                for (int k = 0; k < 3; ++k, noise >>= 8) {
                    place[k] = clamp(colour(event, r, c, k) + static_cast<double>((noise & 255u) % 5u) - 2.0);
                }
            }
        }
    }
    return clip;
}

// Brick-like texture between 30 and 90, fixed for each place.
double texture(int r, int c, int channel) {
    const auto cell = static_cast<uint64_t>(r / 6) * 8191u + static_cast<uint64_t>((c + (r / 6) % 2 * 5) / 10);
    Draw draw(cell * 3u + static_cast<uint64_t>(channel) + 7u);
    draw.next();
    return 30.0 + static_cast<double>(draw.next() % 61u);
}

// The texture of a whole frame, computed once.
std::vector<double> textureMap(int width, int height) {
    std::vector<double> map;
    map.reserve(static_cast<size_t>(width) * static_cast<size_t>(height) * 3);
    for (int r = 0; r < height; ++r) {
        for (int c = 0; c < width; ++c) {
            for (int k = 0; k < 3; ++k) map.push_back(texture(r, c, k));
        }
    }
    return map;
}

size_t index(int width, int r, int c, int k) {
    return (static_cast<size_t>(r) * static_cast<size_t>(width) + static_cast<size_t>(c)) * 3 + static_cast<size_t>(k);
}

// Lights go on: every pixel gains 40 and becomes 1.6 times as bright, so the change follows the texture.
Clip lightsOn(int width, int height, SceneLength length) {
    const std::vector<double> texture = textureMap(width, height);
    return paint("lights on", width, height, length, [&](int event, int r, int c, int k) {
        const double dark = texture[index(width, r, c, k)];
        return event < 0 ? dark : 1.6 * dark + 40.0;
    });
}

// Single changed cells, three cells apart (nearer ones would join through the steep change at their corners), so that
// every one is a component of its own: as many as fit, about 10,000 at most, others in each frame.
Clip specks(int width, int height, SceneLength length) {
    const int pitch = 3 * kCell;
    const int columns = width / pitch;
    const int places = columns * (height / pitch);
    const auto shown = static_cast<uint32_t>(std::min(900, 1000 * 10000 / std::max(places, 1)));  // of 1000 places
    return paint("specks", width, height, length, [=](int event, int r, int c, int) {
        const int place = r / pitch * columns + c / pitch;
        const bool inside = r % pitch < kCell && c % pitch < kCell && c / pitch < columns && place < places;
        if (event < 0 || !inside) return 120.0;
        Draw draw(static_cast<uint64_t>(event) * 1000003u + static_cast<uint64_t>(place));
        draw.next();
        return draw.next() % 1000u < shown ? 150.0 : 120.0;
    });
}

// Salt and pepper on single pixels: one in twenty turns black or white, others in each frame.
Clip saltAndPepper(int width, int height, SceneLength length) {
    Draw draw(5);
    return paint("salt and pepper", width, height, length, [draw, hit = 0u](int event, int, int, int k) mutable {
        if (event < 0) return 120.0;
        if (k == 0) hit = draw.next() % 40u;
        return hit == 0 ? 0.0 : hit == 1 ? 255.0 : 120.0;
    });
}

// A background that never rests: every pixel takes one of six colours in turn at random, so that every cell learns six
// clusters and each pixel has as many candidates as there can be. There is no event; this is what cells cost at most.
Clip sixColours(int width, int height, SceneLength length) {
    Draw draw(9);
    return paint("six colours", width, height, length, [draw, pick = 0u](int, int, int, int k) mutable {
        if (k == 0) pick = draw.next() % 6u;
        return 20.0 + 40.0 * static_cast<double>((pick + static_cast<uint32_t>(k) * 2u) % 6u);
    });
}

// Two waves a quarter period apart in red and green: their differences change steeply everywhere, while the size of the
// change is the same all over. The phase moves on from frame to frame.
double wave(int event, int r, int c, int k, double amplitude) {
    const double phase = kTurn * (static_cast<double>(c) + 0.5 * static_cast<double>(r)) / 48.0 + 0.7 * event;
    return amplitude * (k == 0 ? std::sin(phase) : std::cos(phase));
}

// Everything is foreground: steep change everywhere, and here and there enough to make sure of it.
Clip allForeground(int width, int height, SceneLength length) {
    return paint("all foreground", width, height, length, [](int event, int r, int c, int k) {
        if (event < 0) return 125.0;
        if (k == 2) return r / 16 % 4 == 0 && c / 16 % 4 == 0 ? 250.0 : 125.0;
        return 125.0 + wave(event, r, c, k, 100.0);
    });
}

// Steep change over four fifths of the frame that is nowhere large enough, measured against the frame as a whole, to be
// certain foreground: the spread of the change lifts the upper threshold above it.
Clip steepButUncertain(int width, int height, SceneLength length) {
    return paint("steep, uncertain", width, height, length, [=](int event, int r, int c, int k) {
        if (event < 0 || k == 2 || c >= width * 4 / 5) return 125.0;
        return 125.0 + wave(event, r, c, k, 100.0);
    });
}

}  // namespace

Clip streetScene(int width, int height, SceneLength length) {
    Clip clip = emptyClip("street", width, height, length);
    fleifeisa::scenes::SceneDescription description;
    description.width = width;
    description.height = height;
    description.frames = static_cast<int64_t>(clip.frames());
    fleifeisa::scenes::Scene scene(description);
    for (size_t i = 0; i < clip.frames(); ++i)
        scene.render(static_cast<int64_t>(i), {clip.frame(i), clip.frameBytes()});
    return clip;
}

Clip manyObjects(int width, int height, size_t objects, SceneLength length) {
    Clip clip = paint("many objects", width, height, length, [](int, int, int, int) { return 120.0; });
    // Boxes on a raster with gaps of at least two cells, so that they stay apart, and with edges soft enough not to
    // join them: 30 brighter than the wall. Boxes of a few cells drift; smaller ones would leave the cells they were
    // seen in from one frame to the next, be taken for new objects, and fill the analyzer's table; they stand still.
    const double share =
        static_cast<double>(width) * static_cast<double>(height) / std::max(1.0, static_cast<double>(objects));
    const int pitch = std::max(3 * kCell, static_cast<int>(std::sqrt(share)) / kCell * kCell);
    const int side = std::clamp(pitch / 2 / kCell * kCell, kCell, std::min(48, pitch - 2 * kCell));
    const int columns = std::max(1, width / pitch);
    for (size_t frame = length.learning; frame < clip.frames(); ++frame) {
        const int drift = side < 4 * kCell ? 0 : static_cast<int>(frame - length.learning) / 2 * kCell;
        for (size_t object = 0; object < objects; ++object) {
            const int top = static_cast<int>(object) / columns * pitch;
            const int left = (static_cast<int>(object) % columns * pitch + drift) % (columns * pitch);
            for (int r = top; r < std::min(top + side, height); ++r) {
                uint8_t* row = pixel(clip, frame, r, 0);
                for (int c = left * 3; c < std::min(left + side, width) * 3; ++c) row[c] = clamp(row[c] + 30.0);
            }
        }
    }
    return clip;
}

const std::vector<WorstScene>& worstScenes() {
    static const std::vector<WorstScene> scenes{
        {"lights on", "lights switched on over a textured scene", lightsOn},
        {"specks", "isolated changed cells, up to ten thousand components", specks},
        {"salt and pepper", "one pixel in twenty turns black or white", saltAndPepper},
        {"six colours", "every cell with as many clusters as it can have", sixColours},
        {"all foreground", "every cell foreground, one component", allForeground},
        {"steep, uncertain", "strong derivatives whose confidence never reaches 1", steepButUncertain},
    };
    return scenes;
}

}  // namespace bench
