#include "archive/local_time.h"

#include "common/text.h"

namespace fleifeisa::host {
namespace {

constexpr std::int64_t kSecondNs = 1'000'000'000;

}  // namespace

std::int64_t LocalTime::offsetAt(std::int64_t time_ns) {
    const std::int64_t time_s = time_ns / kSecondNs;
    if (time_s < offset_.begin_s || time_s >= offset_.end_s) offset_ = zone_.offsetAt(time_s);
    return offset_.seconds;
}

std::string LocalTime::dayOf(std::int64_t time_ns) {
    return rfc3339(time_ns + offsetAt(time_ns) * kSecondNs).substr(0, 10);
}

int LocalTime::hourOf(std::int64_t time_ns) {
    return std::stoi(rfc3339(time_ns + offsetAt(time_ns) * kSecondNs).substr(11, 2));
}

}  // namespace fleifeisa::host
