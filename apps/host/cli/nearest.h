// "Did you mean ...?"
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace fleifeisa::host {

/// Number of single-character edits between two words.
std::size_t editDistance(std::string_view a, std::string_view b);

/// The word that the given one is a slip of: at most two edits away, fewer than half of its letters. "" where none is.
std::string nearest(std::string_view word, std::span<const std::string> known);

}  // namespace fleifeisa::host
