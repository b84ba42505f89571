// What holds in a tracker between two frames. Debug, sanitizer and fuzz builds check it after every frame
// (FLEIFEISA_CHECK_INVARIANTS); a violation is printed with its place and aborts the process.
#pragma once

#include <string>

#include "tracker/kscolortracker.h"

// Each returns the first violation as a text that says what is wrong and where, or an empty text.

// The grid's geometry, which never changes: neighbour tables in range and symmetric.
std::string GeometryViolation(const ColorDiffTracker& T);
// Everything that a frame changes. O(cells + pool nodes).
std::string FrameViolation(const ColorDiffTracker& T);

[[noreturn]] void ReportViolation(const std::string& text, const char* after, int frame);

inline void CheckGeometry([[maybe_unused]] const ColorDiffTracker& T) {
#ifdef FLEIFEISA_CHECK_INVARIANTS
    if (const std::string v = GeometryViolation(T); !v.empty()) ReportViolation(v, "construction", 0);
#endif
}

inline void CheckFrame([[maybe_unused]] const ColorDiffTracker& T, [[maybe_unused]] const char* after) {
#ifdef FLEIFEISA_CHECK_INVARIANTS
    if (const std::string v = FrameViolation(T); !v.empty()) ReportViolation(v, after, T.t);
#endif
}
