// A bitmap font of capitals, digits and some signs, 5 by 7 dots each.
#pragma once

#include <array>

namespace fleifeisa {

constexpr int kGlyphWidth = 5, kGlyphHeight = 7;

/// Rows from the top; '#' is a dot.
using Glyph = std::array<char, kGlyphWidth * kGlyphHeight + 1>;

/// Small letters look like capitals; what has no glyph looks like a question mark.
const Glyph& glyphOf(char c);

}  // namespace fleifeisa
