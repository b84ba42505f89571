#include "scenes/acts.h"

#include <algorithm>
#include <array>

namespace fleifeisa::scenes {
namespace {

// Zone "yard": x 300 to 700, y 600 to 900. Line "gate": x 500, y 350 to 900. Somebody is 190 high and 57 wide.
const std::vector<Act> kActs = {
    {"walk",
     "one after the other through the zone and over the line",
     {{0, 160, {{-100, 750}, {1100, 750}}}, {210, 160, {{1100, 700}, {-100, 700}}}},
     {},
     420},
    {"edge",
     "along the edge of the zone, a little in and a little out; then somebody who goes in at last",
     {{0,
       200,
       {{-100, 597}, {340, 593}, {380, 605}, {420, 594}, {460, 606}, {540, 595}, {600, 604}, {660, 594}, {1100, 596}}},
      {260, 200, {{-100, 560}, {340, 594}, {400, 606}, {440, 594}, {520, 750}, {560, 560}, {1100, 560}}}},
     {},
     540},
    {"hesitate",
     "to and fro on the line: one turns back, one goes over it",
     {{0, 160, {{-100, 500}, {494, 500, 10}, {506, 500, 5}, {495, 500, 5}, {505, 500, 5}, {494, 500}, {-100, 500}}},
      {240, 160, {{-100, 500}, {494, 500, 5}, {507, 500, 5}, {493, 500, 5}, {506, 500}, {1100, 500}}}},
     {},
     460},
    {"part-on-line",
     "two come as one and part on the line: one goes on, one goes back",
     {{0, 160, {{-100, 700}, {480, 700}, {1100, 600}}},
      {0, 160, {{-60, 700}, {520, 700}, {480, 800}, {-100, 850}}, true, 0}},
     {},
     240},
    {"part-in-zone",
     "two come into the zone as one and part there",
     {{0, 160, {{-100, 750}, {460, 750}, {500, 860}, {1100, 860}}},
      {0, 160, {{-55, 750}, {505, 750}, {560, 650}, {1100, 650}}, true, 0}},
     {},
     240},
    {"meet",
     "two meet on the line and go on",
     {{0, 160, {{-100, 560}, {1100, 560}}}, {2, 160, {{1100, 590}, {-100, 590}}}},
     {},
     220},
    {"stand",
     "somebody stands still in the zone for a while",
     {{0, 160, {{-100, 750}, {420, 750, 140}, {1100, 700}}}},
     {},
     360},
    {"around",
     "around the end of the line, over it and back",
     {{0, 160, {{-100, 800}, {400, 800}, {420, 960}, {580, 960}, {600, 800}, {380, 800}, {400, 960}, {1100, 960}}}},
     {},
     330},
    {"corner",
     "past the corner of the zone, across the corner, between two crossings of its upper edge",
     {{0, 160, {{-100, 500}, {250, 500}, {800, 540}, {1100, 540}}},
      {240, 200, {{-100, 700}, {420, 760}, {480, 520}, {560, 520}, {620, 760}, {1100, 760}}}},
     {},
     500},
    {"cars",
     "cars over the line",
     {{0, 60, {{-200, 560}, {1200, 560}}, false}, {120, 50, {{1200, 690}, {-200, 690}}, false}},
     {},
     230},
    {"lamp", "a lamp goes on and off, nobody comes", {}, {{100, 240, 1024}}, 360},
    {"lamp-then-walk",
     "a lamp goes on and stays on; then somebody walks",
     {{160, 160, {{-100, 750}, {1100, 750}}}},
     {{100, 1000, 1024}},
     380},
    {"lamp-and-walk",
     "a lamp goes on while somebody walks into the zone, and off when somebody else does",
     {{60, 160, {{-100, 750}, {480, 750, 60}, {1100, 750}}}, {300, 160, {{1100, 700}, {520, 700, 60}, {-100, 700}}}},
     {{135, 370, 1024}},
     560},
    {"cap",
     "a cap before the lens while somebody is in the zone, who has gone when it is off; somebody else has come",
     {{0, 160, {{-100, 750}, {500, 750}, {-100, 750}}}, {160, 160, {{1100, 800}, {550, 800, 40}, {1100, 800}}}},
     {{70, 240, 30}},
     430},
};

constexpr std::array<Colour, 4> kTops = {{{190, 40, 40}, {40, 70, 180}, {215, 180, 40}, {40, 130, 60}}};
constexpr std::array<Colour, 4> kBottoms = {{{40, 70, 180}, {225, 225, 220}, {30, 32, 38}, {200, 110, 40}}};

}  // namespace

std::span<const Act> acts() {
    return kActs;
}

const Act* findAct(std::string_view name) {
    const auto found = std::ranges::find(kActs, name, &Act::name);
    return found == kActs.end() ? nullptr : &*found;
}

std::vector<Actor> castOf(const SceneDescription& description) {
    std::vector<Actor> cast;
    const Act* act = findAct(description.act);
    if (!act) return cast;
    for (std::size_t i = 0; i < act->parts.size(); ++i) {
        const Part& part = act->parts[i];
        Actor actor;
        actor.id = static_cast<int>(i) + 1;
        actor.person = part.person;
        actor.start = description.quiet + part.start;
        actor.speed = std::max<Sub>(1, static_cast<Sub>(description.width) * kSub / part.across);
        actor.height = std::max(1, description.height * (part.person ? 190 : 120) / 1000);
        actor.width = std::max(1, part.person ? actor.height * 2 / 5 : actor.height * 5 / 2);
        actor.top = kTops[i % kTops.size()];
        actor.bottom = part.person ? kBottoms[i % kBottoms.size()] : Colour{45, 55, 70};
        for (const Mark& mark : part.way)
            actor.way.push_back({static_cast<Sub>(description.width) * kSub * mark.x / 1000,
                                 static_cast<Sub>(description.height) * kSub * mark.y / 1000, mark.hold});
        cast.push_back(std::move(actor));
    }
    return cast;
}

}  // namespace fleifeisa::scenes
