#include "compare/looks.h"

#include <poll.h>
#include <sysexits.h>

#include <algorithm>
#include <cmath>

#include "common/canvas.h"
#include "sources/feeder.h"
#include "sources/rgb_frame.h"

namespace fleifeisa::host {
namespace {

constexpr int kQuality = 80;
constexpr Rgb kDark = {16, 20, 24};

Rgb colourOf(Mark mark) {
    return mark == Mark::kBoth ? Rgb{105, 219, 124} : mark == Mark::kOtherTimes ? Rgb{255, 202, 40} : Rgb{255, 82, 82};
}

bool takeFrame(Feeder& feeder, RawFrame& frame) {
    std::int64_t dropped = 0;
    while (!feeder.take(frame, dropped)) {
        if (feeder.ended()) return false;
        pollfd item{feeder.ready().fd(), POLLIN, 0};
        ::poll(&item, 1, 1000);
    }
    return true;
}

}  // namespace

std::map<std::int64_t, Look> looksAt(const SourceOptions& clip, const std::set<std::int64_t>& moments) {
    std::map<std::int64_t, Look> looks;
    if (moments.empty()) return looks;
    Feeder feeder("pictures", clip);
    feeder.start();
    RawFrame frame;
    std::vector<std::uint8_t> spare;
    Look before;  // the latest frame before the next moment
    auto wanted = moments.begin();
    std::int64_t first = -1;
    while (wanted != moments.end() && takeFrame(feeder, frame)) {
        if (first < 0) first = frame.time_ns;
        const std::int64_t time = frame.time_ns - first;
        RgbFrame rgb = toRgbFrame(frame, clip, spare);
        if (!frame.bytes.empty()) feeder.recycle(std::move(frame.bytes));
        Look now{time, reduced({rgb.width, rgb.height, rgb.rgb}, {0, 0, rgb.width, rgb.height}, kLookSide, kLookSide)};
        spare = std::move(rgb.rgb);
        for (; wanted != moments.end() && *wanted <= time; ++wanted) {
            const bool earlier = !before.picture.rgb.empty() && *wanted - before.time_ns <= time - *wanted;
            looks[*wanted] = earlier ? before : now;
        }
        before = std::move(now);
    }
    if (first < 0) throw SourceError(EX_NOINPUT, clip.source + ": there is no frame in it");
    for (; wanted != moments.end(); ++wanted) looks[*wanted] = before;
    return looks;
}

std::pair<int, int> pictureSize(const SourceOptions& clip) {
    SourceOptions one = clip;
    one.frames = 1;
    Feeder feeder("pictures", one);
    feeder.start();
    RawFrame frame;
    if (!takeFrame(feeder, frame)) throw SourceError(EX_NOINPUT, clip.source + ": there is no frame in it");
    return {frame.layout.width, frame.layout.height};
}

std::string drawnLook(const Picture& picture, const std::vector<MarkedBox>& boxes) {
    Picture drawn = picture;
    Canvas canvas(drawn.rgb, drawn.width, drawn.height);
    const int scale = std::max(drawn.width, drawn.height) >= 480 ? 2 : 1;
    const auto place = [](double share, int side) {
        return static_cast<int>(std::lround(std::clamp(share, -1.0, 2.0) * side));
    };
    // What stands alone last, on top of the others.
    for (const Mark mark : {Mark::kBoth, Mark::kOtherTimes, Mark::kAlone})
        for (const MarkedBox& one : boxes) {
            if (one.mark != mark) continue;
            const int left = place(one.box.left, drawn.width), top = place(one.box.top, drawn.height);
            const int width = place(one.box.right, drawn.width) - left;
            const int height = place(one.box.bottom, drawn.height) - top;
            const int thick = one.meant ? 2 * scale + 1 : scale;
            canvas.box(left - thick, top - thick, width + 2 * thick, height + 2 * thick, kDark, thick + 1);
            canvas.box(left - thick + 1, top - thick + 1, width + 2 * thick - 2, height + 2 * thick - 2, colourOf(mark),
                       thick);
            const std::string number = std::to_string(one.track);
            const int above = top - Canvas::textHeight(scale) - scale;
            const int text_top = above >= 0 ? above : std::min(top + height, drawn.height - Canvas::textHeight(scale));
            canvas.fill(left - 1, text_top - 1, Canvas::textWidth(number, scale) + 2, Canvas::textHeight(scale) + 2,
                        kDark, 180);
            canvas.text(left, text_top, number, colourOf(mark), scale);
        }
    return jpegOf(drawn, kQuality);
}

}  // namespace fleifeisa::host
