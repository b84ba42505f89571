#include "scenes/scene.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include "scenes/actors.h"
#include "scenes/acts.h"
#include "scenes/random.h"

namespace fleifeisa::scenes {
namespace {

std::uint8_t toByte(int value) {
    return static_cast<std::uint8_t>(std::clamp(value, 0, 255));
}

/// A picture in memory with clipped drawing.
struct Canvas {
    int width, height;
    std::span<std::uint8_t> rgb;

    void set(int x, int y, Colour c) {
        if (x < 0 || y < 0 || x >= width || y >= height) return;
        std::uint8_t* p =
            &rgb[(static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)) * 3];
        p[0] = c.r;
        p[1] = c.g;
        p[2] = c.b;
    }
    void box(int left, int top, int w, int h, Colour c) {
        for (int y = std::max(0, top); y < std::min(height, top + h); ++y)
            for (int x = std::max(0, left); x < std::min(width, left + w); ++x) set(x, y, c);
    }
    /// An ellipse that fills the box.
    void oval(int left, int top, int w, int h, Colour c) {
        for (int y = std::max(0, top); y < std::min(height, top + h); ++y)
            for (int x = std::max(0, left); x < std::min(width, left + w); ++x) {
                const std::int64_t dx = std::int64_t{2 * (x - left) + 1 - w} * h;
                const std::int64_t dy = std::int64_t{2 * (y - top) + 1 - h} * w;
                if (dx * dx + dy * dy <= std::int64_t{w} * h * w * h) set(x, y, c);
            }
    }
    /// Darkens an ellipse to 3/4: a shadow on the ground.
    void shade(int left, int top, int w, int h) {
        for (int y = std::max(0, top); y < std::min(height, top + h); ++y)
            for (int x = std::max(0, left); x < std::min(width, left + w); ++x) {
                const std::int64_t dx = std::int64_t{2 * (x - left) + 1 - w} * h;
                const std::int64_t dy = std::int64_t{2 * (y - top) + 1 - h} * w;
                if (dx * dx + dy * dy > std::int64_t{w} * h * w * h) continue;
                std::uint8_t* p =
                    &rgb[(static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)) *
                         3];
                for (int i = 0; i < 3; ++i) p[i] = static_cast<std::uint8_t>(p[i] * 3 / 4);
            }
    }
};

Colour scaled(Colour c, int percent) {
    return {toByte(c.r * percent / 100), toByte(c.g * percent / 100), toByte(c.b * percent / 100)};
}

/// The colour of the ground, before its grain.
Colour groundAt(const SceneDescription& description, const Layout& rows, int x, int y) {
    const int brick = std::max(2, description.height / 24);
    if (y < rows.wall_end) {
        const bool joint = y % brick == 0 || (x + (y / brick % 2) * brick) % (2 * brick) == 0;
        return joint ? Colour{138, 128, 118} : Colour{152, 112, 92};
    }
    if (y < rows.road_begin || y >= rows.road_end) {
        const int slab = std::max(3, description.height / 14);
        return (x + y / 2) % slab == 0 || y % slab == 0 ? Colour{122, 120, 114} : Colour{146, 143, 136};
    }
    const int middle = (rows.road_begin + rows.road_end) / 2;
    const int dash = std::max(2, description.width / 16);
    if (y == middle && x / dash % 2 == 0) return {205, 203, 190};
    return {104, 106, 110};
}

/// Grain: per pixel, and in blocks of 8 pixels as worn patches.
int grain(const SceneDescription& description, int x, int y) {
    const std::uint64_t fine = mix(description.seed, 1000u + static_cast<unsigned>(x), static_cast<unsigned>(y));
    const std::uint64_t coarse =
        mix(description.seed, 90000u + static_cast<unsigned>(x / 8), static_cast<unsigned>(y / 8));
    return static_cast<int>(fine % 13) - 6 + static_cast<int>(coarse % 9) - 4;
}

void drawPerson(Canvas& canvas, const Actor& a, const Pose& p, bool shadow) {
    const int left = p.x - a.width / 2;
    const int top = p.y - a.height + 1;
    const int head = std::max(1, a.height * 18 / 100);
    const int torso = std::max(1, a.height * 40 / 100);
    const int legs = a.height - head - torso;
    if (shadow)
        canvas.shade(left - a.width / 3, p.y - std::max(1, a.height / 14), a.width * 2, std::max(1, a.height / 7));
    const int leg = std::max(1, a.width * 2 / 5);
    const int swing =
        p.walking ? std::array<int, 4>{0, a.width / 6, 0, -a.width / 6}[static_cast<std::size_t>(p.step)] : 0;
    canvas.box(left + swing, top + head + torso, leg, legs, a.bottom);
    canvas.box(left + a.width - leg - swing, top + head + torso, leg, legs, scaled(a.bottom, 85));
    canvas.oval(left, top + head - 1, a.width, torso + 2, a.top);
    canvas.box(left + a.width / 8, top + head + torso / 3, a.width - a.width / 4, torso - torso / 3 + 1, a.top);
    canvas.oval(p.x - head / 2, top, head, head, shadow ? Colour{205, 160, 130} : Colour{235, 235, 235});
}

void drawCar(Canvas& canvas, const Actor& a, const Pose& p, bool shadow) {
    const int left = p.x - a.width / 2;
    const int top = p.y - a.height + 1;
    const int roof = a.height * 2 / 5;
    const int wheel = std::max(1, a.height / 4);
    if (shadow)
        canvas.shade(left - a.width / 20, p.y - a.height / 10, a.width + a.width / 10, std::max(1, a.height / 5));
    const int cabin = left + a.width * (p.leftward ? 25 : 20) / 100;
    canvas.oval(cabin, top, a.width * 55 / 100, roof * 2, a.top);
    canvas.oval(cabin + a.width * 5 / 100, top + roof / 4, a.width * 45 / 100, roof * 2, a.bottom);
    canvas.box(left, top + roof, a.width, std::max(1, a.height - roof - wheel / 2), a.top);
    canvas.box(left, top + roof + (a.height - roof) / 2, a.width, std::max(1, a.height / 12), scaled(a.top, 80));
    for (const int at : {a.width / 6, a.width * 5 / 6 - wheel})
        canvas.oval(left + at, p.y - wheel + 1, wheel, wheel, Colour{25, 25, 27});
}

/// The frame that frame `number` repeats: its own, but where the picture is frozen.
std::int64_t shownIn(const SceneDescription& description, std::int64_t number) {
    const std::int64_t freezes = description.quiet + std::int64_t{30} * description.rate;
    const std::int64_t goes_on = freezes + std::int64_t{90} * description.rate;
    return description.name == "covered" && number > freezes && number < goes_on ? freezes : number;
}

/// Of the scene "dusk", in seconds since it begins: light falls and rises, and the camera shows grey, lit by itself.
/// It turns to that once too early, as cameras do.
constexpr int kDusk = 20, kDark = 40, kTry = 36, kTried = 39, kNight = 45, kMorning = 135, kDay = 155;

bool nightMode(const SceneDescription& description, std::int64_t number) {
    const std::int64_t since = number - description.quiet, rate = description.rate;
    return description.name == "dusk" &&
           ((since >= kTry * rate && since < kTried * rate) || (since >= kNight * rate && since < kMorning * rate));
}

int twilight(const SceneDescription& description, std::int64_t number) {
    const std::int64_t rate = description.rate, since = std::max<std::int64_t>(0, number - description.quiet);
    if (nightMode(description, number)) return 1200;
    const std::int64_t fallen = std::clamp<std::int64_t>(since - kDusk * rate, 0, (kDark - kDusk) * rate);
    const std::int64_t risen = std::clamp<std::int64_t>(since - kMorning * rate, 0, (kDay - kMorning) * rate);
    return 1024 - static_cast<int>(512 * (fallen - risen) / ((kDark - kDusk) * rate));
}

/// Brightness of the light in frame `number`, in 1/1024: a triangle wave, but for lamp, dusk and cap.
int lightIn(const SceneDescription& description, std::int64_t number) {
    const std::int64_t since = number - description.quiet;
    if (description.name == "lamp") return since >= 0 && since / (20 * description.rate) % 2 == 1 ? 1024 : 640;
    if (description.name == "covered" && since >= 10 * description.rate && since < 20 * description.rate) return 40;
    if (description.name == "stage") {
        for (const Light& light : findAct(description.act)->lights)
            if (since >= light.from && since < light.to) return light.level;
        return kStageLight;
    }
    if (description.name == "dusk") return twilight(description, number);
    const bool clouds = description.name == "lights";
    const int half = clouds ? 45 : 400;   // frames
    const int depth = clouds ? 256 : 24;  // peak to peak
    if (clouds && number < description.quiet) return 1024;
    const auto phase = static_cast<int>(number % (2 * half));
    return 1024 - depth * std::min(phase, 2 * half - phase) / half;
}

/// 256 equally likely values whose histogram is a bell with a standard deviation of 1.8.
constexpr std::array<std::int8_t, 256> makeBell() {
    constexpr std::array<int, 6> kCount = {56, 48, 30, 14, 6, 2};  // of 0, +-1, +-2 ...
    std::array<std::int8_t, 256> bell{};
    std::size_t at = 0;
    for (int value = -5; value <= 5; ++value)
        for (int i = 0; i < kCount[static_cast<std::size_t>(value < 0 ? -value : value)]; ++i)
            bell[at++] = static_cast<std::int8_t>(value);
    return bell;
}
constexpr std::array<std::int8_t, 256> kBell = makeBell();

void addLightAndNoise(const SceneDescription& description, std::int64_t number, std::span<std::uint8_t> rgb) {
    const int light = lightIn(description, number);
    const bool at_night = nightMode(description, number);
    const bool grey = description.name == "night-ir" || at_night;
    const int noise = grey ? description.noise * 2 : description.noise;
    Random draw(mix(description.seed, 7, static_cast<std::uint64_t>(number)));
    std::array<std::int16_t, 256> jitter{};
    for (std::size_t i = 0; i < jitter.size(); ++i) jitter[i] = static_cast<std::int16_t>(kBell[i] * noise / 2);
    std::uint64_t bits = 0;
    int have = 0;
    const std::size_t step = grey ? 3 : 1;
    for (std::size_t i = 0; i < rgb.size(); i += step) {
        if (have == 0) {
            bits = draw.next();
            have = 8;
        }
        const int level = at_night ? (rgb[i] + 2 * rgb[i + 1] + rgb[i + 2]) / 4 : rgb[i];
        const std::uint8_t value = toByte((level * light >> 10) + jitter[bits & 255]);
        bits >>= 8;
        --have;
        rgb[i] = value;
        if (grey) rgb[i + 1] = rgb[i + 2] = value;
    }
}

void check(const SceneDescription& description) {
    bool known = false;
    for (const SceneKind& kind : sceneKinds()) known = known || kind.name == description.name;
    known = known && (description.name != "stage" || findAct(description.act));
    if (!known || description.width < 1 || description.height < 1 || description.width > 8192 ||
        description.height > 8192)
        throw std::invalid_argument("scene: description out of range");
}

}  // namespace

struct Scene::State {
    SceneDescription description;
    std::vector<std::uint8_t> ground;
};

Scene::Scene(const SceneDescription& description) : state_(std::make_unique<State>()) {
    check(description);
    state_->description = description;
    std::vector<std::uint8_t>& ground = state_->ground;
    ground.resize(static_cast<std::size_t>(description.width) * static_cast<std::size_t>(description.height) * 3);
    Canvas canvas{description.width, description.height, ground};
    const Layout rows = layoutOf(description);
    const bool night = description.name == "night-ir";
    for (int y = 0; y < description.height; ++y)
        for (int x = 0; x < description.width; ++x) {
            Colour c = groundAt(description, rows, x, y);
            const int g = grain(description, x, y);
            if (night) c.r = c.g = c.b = static_cast<std::uint8_t>((c.r + c.g + c.b) / 6);
            canvas.set(x, y, {toByte(c.r + g), toByte(c.g + g), toByte(c.b + g)});
        }
}

Scene::~Scene() = default;

const SceneDescription& Scene::description() const {
    return state_->description;
}

void Scene::render(std::int64_t number, std::span<std::uint8_t> rgb) {
    const SceneDescription& description = state_->description;
    if (rgb.size() != state_->ground.size()) throw std::invalid_argument("scene: buffer of another size");
    number = shownIn(description, number);
    std::copy(state_->ground.begin(), state_->ground.end(), rgb.begin());
    Canvas canvas{description.width, description.height, rgb};
    const bool shadow = description.name != "night-ir";
    for (const Present& one : presentIn(description, number)) {
        if (one.actor.person)
            drawPerson(canvas, one.actor, one.pose, shadow);
        else
            drawCar(canvas, one.actor, one.pose, shadow);
    }
    addLightAndNoise(description, number, rgb);
}

std::vector<TruthBox> Scene::truth(std::int64_t number) const {
    const SceneDescription& description = state_->description;
    number = shownIn(description, number);
    std::vector<TruthBox> boxes;
    for (const Present& one : presentIn(description, number)) {
        const int left = std::max(0, one.pose.x - one.actor.width / 2);
        const int top = std::max(0, one.pose.y - one.actor.height + 1);
        const int right = std::min(description.width, one.pose.x - one.actor.width / 2 + one.actor.width);
        const int bottom = std::min(description.height, one.pose.y + 1);
        if (right > left && bottom > top)
            boxes.push_back({one.actor.id, left, top, right - left, bottom - top, one.actor.person});
    }
    return boxes;
}

}  // namespace fleifeisa::scenes
