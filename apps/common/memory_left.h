// How much memory this process may still take before somebody suffers.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace fleifeisa {

/// Bytes: what the system has left or, where it is less, what the control groups of this process allow. Nothing where
/// neither is known. @param root  in front of /proc and /sys, for tests
std::optional<std::int64_t> memoryLeft(const std::string& root = "");

}  // namespace fleifeisa
