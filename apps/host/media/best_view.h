// How good a picture of a thing is: large, whole, sharp.
#pragma once

#include "outputs/picture.h"
#include "tracks/track.h"

namespace fleifeisa::host {

/// Comparable within one camera: pixels of the box, fewer where it is cut off by the picture's edge or blurred.
/// More than 0. Looks at a few thousand pixels at most.
double viewScore(const PictureView& picture, const Box& box);

/// The part of the picture that shows the box with what is around it, in the shape of a thumbnail (16:9) where the
/// picture has room for it.
Cut thumbnailCut(const PictureView& picture, const Box& box);

}  // namespace fleifeisa::host
