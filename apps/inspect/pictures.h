// The pictures of one frame.
#pragma once

#include <string>
#include <vector>

#include "inspect/facts.h"
#include "inspect/raster.h"

namespace fleifeisa::inspect {

struct Picture {
    std::string name;     ///< part of the file name
    std::string title;    ///< for the page, plain text
    std::string caption;  ///< what the colours mean, plain text
    Raster image;
};

/// Pixels of the picture for each pixel of the frame: small frames are enlarged so that ids can be read.
int pictureScale(int frame_width);

/// Frame and background always; the rest only after a detection, and clusters only where the background has any.
/// Cells of both lattices overlap: where the background shows the main lattice, every other picture shows the stronger
/// of the two cells at a place.
std::vector<Picture> drawPictures(Session& session, const FrameFacts& facts, int scale);

}  // namespace fleifeisa::inspect
