// Pictures of a clip at some moments, with what a run showed there.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "compare/clip_result.h"
#include "outputs/picture.h"
#include "sources/source.h"

namespace fleifeisa::host {

/// A frame as it was analyzed, made no larger than kLookSide.
struct Look {
    std::int64_t time_ns = 0;  ///< since the first frame
    Picture picture;
};
constexpr int kLookSide = 640;  ///< pixels

/// The frames nearest to these moments (nanoseconds since the first frame), by moment. Reads the clip up to the last of
/// them, with region, masks and private areas as the options say. Moments beyond the end get the last frame.
/// @throws SourceError
std::map<std::int64_t, Look> looksAt(const SourceOptions& clip, const std::set<std::int64_t>& moments);

/// Width and height of the source's own picture, before region and size. @throws SourceError
std::pair<int, int> pictureSize(const SourceOptions& clip);

/// What a box is drawn like.
enum class Mark { kBoth, kOtherTimes, kAlone };

struct MarkedBox {
    std::int64_t track = 0;
    ShareBox box;
    Mark mark = Mark::kBoth;
    bool meant = false;  ///< the one that the picture is about: drawn stronger
};

/// JPEG file of the picture with the boxes and their numbers.
std::string drawnLook(const Picture& picture, const std::vector<MarkedBox>& boxes);

}  // namespace fleifeisa::host
