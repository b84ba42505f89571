#include "inspect/track_pictures.h"

#include <algorithm>

#include "inspect/colours.h"

namespace fleifeisa::inspect {

namespace {

using host::Box;
using host::Drop;

constexpr Rgb kBlack{0, 0, 0}, kWhite{255, 255, 255}, kGrey{150, 150, 150};
constexpr Rgb kBlob{105, 219, 124}, kMask{64, 196, 255};

struct Kind {
    const char* name;
    Rgb colour;
};
Kind kindOf(Drop why) {
    switch (why) {
        case Drop::kTooSmall:
            return {"", kGrey};  // too many of them for words
        case Drop::kNoSupport:
            return {"no support", {255, 202, 40}};
        case Drop::kGhost:
            return {"ghost", {178, 132, 255}};
        case Drop::kLight:
            return {"light", {255, 158, 64}};
        case Drop::kHealing:
            return {"heals", {255, 130, 203}};
        case Drop::kTooMany:
            break;
    }
    return {"too many", {255, 99, 71}};
}

class Painter {
 public:
    Painter(Session& session, const TrackStage& stage, int scale)
        : image_(session.frame()),
          infrared_(session.options().type == IR),
          stage_(stage),
          scale_(scale),
          text_(std::max(1, (image_.NofC * scale + 200) / 400)) {}

    Picture background() const;
    Picture refiner() const;
    Picture tracks() const;

 private:
    std::size_t at(int x, int y) const {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(image_.NofC) + static_cast<std::size_t>(x);
    }
    /// colour(x, y) for every pixel of the frame.
    template <class F>
    Raster paint(F colour) const {
        Raster raster(image_.NofC * scale_, image_.NofR * scale_, kBlack);
        for (int y = 0; y < image_.NofR; y++)
            for (int x = 0; x < image_.NofC; x++) raster.fill(x * scale_, y * scale_, scale_, scale_, colour(x, y));
        return raster;
    }
    Rgb frameAt(int x, int y) const {
        const auto byte = [](int v) { return static_cast<std::uint8_t>(v); };
        const int red = image_.Red(y, x);
        return infrared_ ? Rgb{byte(red), byte(red), byte(red)}
                         : Rgb{byte(red), byte(image_.Green(y, x)), byte(image_.Blue(y, x))};
    }
    void box(Raster& raster, const Box& box, Rgb colour, bool dashed) const {
        const int x0 = box.left * scale_, y0 = box.top * scale_;
        const int x1 = box.right() * scale_ - 1, y1 = box.bottom() * scale_ - 1;
        // A dash as long as the picture is a whole line.
        raster.dashedBox(x0, y0, x1, y1, colour, dashed ? 2 * scale_ : raster.width() + raster.height());
    }
    void label(Raster& raster, const Box& box, const std::string& text, Rgb colour) const {
        const int above = box.top * scale_ - Canvas::textHeight(text_) - 2 * text_;
        const int right = std::max(text_, raster.width() - Canvas::textWidth(text, text_) - text_);
        raster.label(std::clamp(box.left * scale_, text_, right),
                     above >= text_ ? above : box.bottom() * scale_ + 2 * text_, text, text_, kBlack, colour);
    }

    KsColorImage& image_;
    bool infrared_;
    const TrackStage& stage_;
    int scale_, text_;
};

Picture Painter::background() const {
    const std::vector<std::uint8_t>& rgb = stage_.view().background;
    return {"refiner-background", "The track filter's background",
            "Its own, per pixel, as this frame was compared with it. A thing that shows here has melted in, or was "
            "learnt.",
            paint([&](int x, int y) {
                const std::size_t i = 3 * at(x, y);
                return Rgb{rgb[i], rgb[i + 1], rgb[i + 2]};
            })};
}

Picture Painter::refiner() const {
    const host::FilterView& view = stage_.view();
    Raster raster = paint([&](int x, int y) {
        if (view.foreground[at(x, y)] != 0) return kMask;
        const Rgb p = frameAt(x, y);
        const int shade = (p.red + p.green + p.blue) / (view.looked_at[at(x, y)] != 0 ? 5 : 12);
        const auto grey = static_cast<std::uint8_t>(shade);
        return Rgb{grey, grey, grey};
    });
    for (const host::DroppedComponent& one : view.dropped) box(raster, one.box, kindOf(one.why).colour, true);
    for (const host::Blob& blob : view.blobs) box(raster, blob.box, kBlob, false);
    for (const host::DroppedComponent& one : view.dropped)
        if (one.why != Drop::kTooSmall) label(raster, one.box, kindOf(one.why).name, kindOf(one.why).colour);
    return {
        "refiner", "Refined foreground",
        "Brighter ground: where the filter looked. Blue: foreground. Green boxes: blobs, what the tracker gets. "
        "Dashed boxes: components that were dropped, with the reason; grey ones, without a word, are smaller than " +
            std::to_string(view.least_component) + " pixels.",
        std::move(raster)};
}

Picture Painter::tracks() const {
    Raster raster = paint([&](int x, int y) { return frameAt(x, y); });
    const auto ink = [](const host::Track& track) {
        return track.number == 0 ? kWhite : distinct(static_cast<int>(track.number % 100'000));
    };
    const auto shown = stage_.result().tracks;
    for (const host::Track& track : shown)
        box(raster, track.box, ink(track),
            track.state != host::TrackState::kConfirmed && track.state != host::TrackState::kStopped);
    for (const host::Track& track : shown) {
        std::string text = track.number == 0 ? "" : std::to_string(track.number) + " ";
        text += host::nameOf(track.state);
        if (track.merged_with != 0) text += " grouped";
        label(raster, track.box, text, ink(track));
    }
    return {
        "tracks", "Tracks",
        "Number and state. Whole lines: confirmed or stopped. Dashed: tentative (white), coasting, or ended in this "
        "frame.",
        std::move(raster)};
}

}  // namespace

std::vector<Picture> drawTrackPictures(Session& session, const TrackStage& stage, int scale) {
    const Painter painter(session, stage, scale);
    std::vector<Picture> pictures;
    if (stage.view().refined) {
        pictures.push_back(painter.background());
        pictures.push_back(painter.refiner());
    }
    pictures.push_back(painter.tracks());
    return pictures;
}

}  // namespace fleifeisa::inspect
