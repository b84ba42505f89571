// The cryptographic hash of recordings.
#pragma once

#include <initializer_list>
#include <span>
#include <string>

namespace fleifeisa::host {

/// BLAKE2b with 256 bits over the pieces in a row, as 64 hexadecimal digits.
std::string digestOf(std::initializer_list<std::span<const char>> pieces);

}  // namespace fleifeisa::host
