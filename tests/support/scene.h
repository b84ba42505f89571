// Request streams for the golden replays. Integer arithmetic only: the bytes are the same on every machine, and they
// must never change (the committed hashes hang on them), which is why the demo's scenes are not used here.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "support/images.h"
#include "support/protocol.h"

struct Scene {
    int width, height, frames;
    int start;   // first frame with anything that moves
    int things;  // moving blobs
    int levels;  // 0: noise; otherwise every pixel jumps between so many levels, so that starting clusters tie
    unsigned seed;
};

/// Shows every frame, from 1, as width * height * 3 bytes of R, G, B.
inline void paintScene(const Scene& s, const std::function<void(int frame, const std::string& pixels)>& show) {
    struct Thing {
        int x, y, vx, vy, w, h, level[3];  // places and speeds in eighths of a pixel
    };
    TestRandom random(s.seed);
    std::vector<Thing> things;
    for (int i = 0; i < s.things; i++) {
        Thing t{random.below(s.width) * 8,
                random.below(s.height) * 8,
                random.range(-20, 20),
                random.range(-12, 12),
                random.range(3, s.width / 4 + 3),
                random.range(3, s.height / 3 + 3),
                {}};
        for (int& level : t.level) level = random.below(2) * 190 + random.below(50);
        things.push_back(t);
    }
    std::string pixels(static_cast<std::size_t>(s.width * s.height * 3), '\0');
    for (int f = 1; f <= s.frames; f++) {
        const int flash = f > s.start && f % 19 == 0 ? 25 : 0;  // the light changes now and then
        for (int i = 0; i < s.width * s.height * 3; i++) {
            const int c = i / 3 % s.width, r = i / 3 / s.width;
            const int base = 80 + (c * 7 + r * 5 + i % 3 * 11) % 60 + flash;
            const int jitter = s.levels == 0 ? random.below(5) - 2 : random.below(s.levels) * (2 + (c / 8 + r / 8) % 9);
            pixels[static_cast<std::size_t>(i)] = static_cast<char>(base + jitter);
        }
        for (Thing& t : things) {
            if (f < s.start) break;
            for (int r = t.y / 8; r < t.y / 8 + t.h; r++)
                for (int c = t.x / 8; c < t.x / 8 + t.w; c++)
                    for (int k = 0; k < 3 && r >= 0 && r < s.height && c >= 0 && c < s.width; k++)
                        pixels[static_cast<std::size_t>((r * s.width + c) * 3 + k)] =
                            static_cast<char>(t.level[k] + (r * 3 + c) % 7);
            t.x += t.vx;
            t.y += t.vy;
            if (t.x < -t.w * 8 || t.x > s.width * 8) t.vx = -t.vx;
            if (t.y < -t.h * 8 || t.y > s.height * 8) t.vy = -t.vy;
        }
        show(f, pixels);
    }
}

inline std::string sceneStream(const Scene& s) {
    std::string stream;
    paintScene(s, [&](int frame, const std::string& pixels) {
        stream += frameMessage(s.width, s.height, pixels, std::to_string(1300000000 + frame), frame);
    });
    return stream + kShutdownMessage;
}
