// What small programs say.
#pragma once

#include <string>
#include <vector>

namespace fleifeisa::host {

/// Standard output of a program, at most 16 MB of it; "" where it cannot be started or takes longer than 30 seconds.
/// @param status  becomes its exit status, -1 where it has none  @param complaints  what it wrote to standard error
std::string outputOf(const std::vector<std::string>& argv, int* status = nullptr, std::string* complaints = nullptr);

}  // namespace fleifeisa::host
