#include "outputs/picture.h"

#include <turbojpeg.h>

#include <algorithm>
#include <memory>

#include "outputs/output.h"

namespace fleifeisa::host {
namespace {

struct Destroy {
    void operator()(void* handle) const { tjDestroy(handle); }
};
using Turbo = std::unique_ptr<void, Destroy>;

[[noreturn]] void fail(const char* what, const Turbo& turbo) {
    throw OutputError(std::string(what) + ": " + tjGetErrorStr2(turbo.get()));
}

}  // namespace

Picture reduced(const PictureView& from, Cut cut, int max_width, int max_height) {
    const int left = std::clamp(cut.left, 0, from.width - 1), top = std::clamp(cut.top, 0, from.height - 1);
    const int width = std::clamp(cut.left + cut.width, left + 1, from.width) - left;
    const int height = std::clamp(cut.top + cut.height, top + 1, from.height) - top;
    Picture to;
    to.width = width;
    to.height = height;
    if (to.width > max_width) {
        to.height = static_cast<int>(std::int64_t{height} * max_width / width);
        to.width = max_width;
    }
    if (to.height > max_height) {
        to.width = static_cast<int>(std::int64_t{width} * max_height / height);
        to.height = max_height;
    }
    to.width = std::max(1, to.width);
    to.height = std::max(1, to.height);
    to.rgb.reserve(static_cast<std::size_t>(to.width) * static_cast<std::size_t>(to.height) * 3);
    for (int y = 0; y < to.height; ++y) {
        const int y0 = top + static_cast<int>(std::int64_t{y} * height / to.height);
        const int y1 = std::max(y0 + 1, top + static_cast<int>(std::int64_t{y + 1} * height / to.height));
        for (int x = 0; x < to.width; ++x) {
            const int x0 = left + static_cast<int>(std::int64_t{x} * width / to.width);
            const int x1 = std::max(x0 + 1, left + static_cast<int>(std::int64_t{x + 1} * width / to.width));
            std::uint64_t sum[3] = {0, 0, 0};
            for (int row = y0; row < y1; ++row) {
                const std::uint8_t* pixel =
                    &from.rgb[(static_cast<std::size_t>(row) * static_cast<std::size_t>(from.width) +
                               static_cast<std::size_t>(x0)) *
                              3];
                for (int i = 0; i < (x1 - x0) * 3; ++i) sum[i % 3] += pixel[i];
            }
            const auto count = static_cast<std::uint64_t>(x1 - x0) * static_cast<std::uint64_t>(y1 - y0);
            for (const std::uint64_t value : sum)
                to.rgb.push_back(static_cast<std::uint8_t>((value + count / 2) / count));
        }
    }
    return to;
}

// The accurate transform is the one whose vector code gives the same bits as its plain code.
std::string jpegOf(const PictureView& picture, int quality) {
    const Turbo turbo(tjInitCompress());
    unsigned char* bytes = nullptr;
    unsigned long size = 0;
    const bool good = turbo && tjCompress2(turbo.get(), picture.rgb.data(), picture.width, 0, picture.height, TJPF_RGB,
                                           &bytes, &size, TJSAMP_420, quality, TJFLAG_ACCURATEDCT) == 0;
    const std::unique_ptr<unsigned char, void (*)(unsigned char*)> owner(bytes, tjFree);
    if (!good) fail("a picture could not be encoded as JPEG", turbo);
    return {reinterpret_cast<const char*>(bytes), size};
}

Picture pictureOf(const std::string& jpeg) {
    const Turbo turbo(tjInitDecompress());
    const auto* bytes = reinterpret_cast<const unsigned char*>(jpeg.data());
    Picture picture;
    int sampling = 0, colours = 0;
    if (!turbo ||
        tjDecompressHeader3(turbo.get(), bytes, jpeg.size(), &picture.width, &picture.height, &sampling, &colours) != 0)
        fail("a picture could not be decoded", turbo);
    picture.rgb.resize(static_cast<std::size_t>(picture.width) * static_cast<std::size_t>(picture.height) * 3);
    if (tjDecompress2(turbo.get(), bytes, jpeg.size(), picture.rgb.data(), picture.width, 0, picture.height, TJPF_RGB,
                      TJFLAG_ACCURATEDCT) != 0)
        fail("a picture could not be decoded", turbo);
    return picture;
}

}  // namespace fleifeisa::host
