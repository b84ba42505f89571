#include "sources/nut.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

namespace fleifeisa::host {
namespace {

constexpr std::string_view kFileId("nut/multimedia container\0", 25);
constexpr std::uint64_t kMain = 0x4E4D7A561F5F04ADu;
constexpr std::uint64_t kStream = 0x4E5311405BF2F9DBu;
constexpr std::uint64_t kSyncpoint = 0x4E4BE4ADEECA4569u;
constexpr std::uint64_t kIndex = 0x4E58DD672F23E64Eu;
constexpr std::int64_t kBillion = 1'000'000'000;
constexpr std::uint64_t kMaxFrameBytes = 512u << 20;

enum Flag : std::uint32_t {
    kCodedPts = 1 << 3,
    kStreamId = 1 << 4,
    kSizeMsb = 1 << 5,
    kChecksum = 1 << 6,
    kReserved = 1 << 7,
    kSideData = 1 << 8,
    kHeaderIndex = 1 << 10,
    kMatchTime = 1 << 11,
    kCoded = 1 << 12,
    kInvalid = 1 << 13,
};

constexpr std::int64_t kMostSeconds = 9'000'000'000;  // a time in nanoseconds stays below 2^63
constexpr std::int64_t kMostTicks = std::int64_t{1} << 61;

[[noreturn]] void damaged(const char* what) {
    throw std::runtime_error(std::string("decoder's stream damaged: ") + what);
}

/// Two of these can be added.
std::int64_t checkTicks(std::int64_t ticks) {
    if (ticks > kMostTicks || ticks < -kMostTicks) damaged("time");
    return ticks;
}

}  // namespace

std::uint64_t NutReader::number() {
    std::uint64_t value = 0;
    for (int i = 0; i < 10; ++i) {
        const std::uint8_t byte = in_.byte();
        value = value << 7 | (byte & 127u);
        if (!(byte & 128u)) return value;
    }
    damaged("number too long");
}

std::int64_t NutReader::signedNumber() {
    const std::uint64_t value = number() + 1;
    return value & 1 ? -static_cast<std::int64_t>(value >> 1) : static_cast<std::int64_t>(value >> 1);
}

std::uint64_t NutReader::bytes64(int count) {
    std::uint64_t value = 0;
    for (int i = 0; i < count; ++i) value = value << 8 | in_.byte();
    return value;
}

void NutReader::skip(std::uint64_t count) {
    while (count-- > 0) in_.byte();
}

std::uint64_t NutReader::packetEnd() {
    const std::uint64_t length = number();
    const std::uint64_t start = in_.position();
    if (length > (1u << 24)) damaged("packet too long");
    if (length > 4096) skip(4);
    return start + length + (length > 4096 ? 4 : 0);
}

void NutReader::readHeaders() {
    for (const char expected : kFileId)
        if (in_.byte() != static_cast<std::uint8_t>(expected)) damaged("no NUT file");
    if (bytes64(8) != kMain) damaged("no main header");
    mainHeader();
    if (bytes64(8) != kStream) damaged("no stream header");
    streamHeader();
}

void NutReader::mainHeader() {
    const std::uint64_t end = packetEnd();
    if (number() > 3) number();  // version, then minor version
    if (number() != 1) damaged("more than one stream");
    number();  // max_distance
    time_bases_ = number();
    if (time_bases_ != 1) damaged("more than one time base");
    time_num_ = number();
    time_den_ = number();
    // The product bounds what a time in nanoseconds is computed from (below 2^63 with the factor 10^9).
    constexpr std::uint64_t kLimit = 9'000'000'000;
    if (time_num_ == 0 || time_den_ == 0 || time_num_ > kLimit / time_den_) damaged("time base");
    frameTable();
    elision_.assign(1, 0);
    for (std::uint64_t count = number(); count > 0; --count) {
        elision_.push_back(number());
        if (elision_.back() > 255 || elision_.size() > 128) damaged("elided headers");
        skip(elision_.back());
    }
    if (in_.position() > end) damaged("main header");
    skip(end - in_.position());
}

/// Run-length coded: each entry gives the values it changes and how many codes share them.
void NutReader::frameTable() {
    std::int64_t pts_delta = 0;
    std::uint64_t mul = 1;
    for (std::size_t i = 0; i < 256;) {
        const std::uint64_t flags = number();
        const std::uint64_t fields = number();
        std::uint64_t size = 0, reserved = 0;
        if (fields > 0) pts_delta = checkTicks(signedNumber());
        if (fields > 1) mul = number();
        if (fields > 2) number();  // stream
        if (fields > 3) size = number();
        if (fields > 4) reserved = number();
        std::uint64_t count = fields > 5 ? number() : mul - size;
        if (fields > 6) signedNumber();  // match time
        if (fields > 7) number();        // header index
        for (std::uint64_t extra = 8; extra < fields; ++extra) number();
        if (count == 0 || count > 256) damaged("frame table");
        for (std::uint64_t j = 0; j < count && i < 256; ++i) {
            if (i == 'N') {  // the first byte of every start code
                codes_[i].flags = kInvalid;
                continue;
            }
            codes_[i] = {static_cast<std::uint32_t>(flags), mul, size + j, reserved, pts_delta};
            ++j;
        }
    }
}

void NutReader::streamHeader() {
    const std::uint64_t end = packetEnd();
    number();  // stream id
    if (number() != 0) damaged("no video stream");
    skip(number() & 255u);  // fourcc
    number();               // time base
    const std::uint64_t shift = number();
    if (shift > 32) damaged("stream header");
    msb_pts_shift_ = static_cast<int>(shift);
    number();                 // max_pts_distance
    number();                 // decode delay
    number();                 // stream flags
    skip(number() & 0xFFFF);  // codec specific data
    const std::uint64_t width = number();
    const std::uint64_t height = number();
    if (width < 1 || height < 1 || width > 16384 || height > 16384) damaged("frame size");
    width_ = static_cast<int>(width);
    height_ = static_cast<int>(height);
    if (in_.position() > end) damaged("stream header");
    skip(end - in_.position());
}

void NutReader::syncpoint() {
    const std::uint64_t end = packetEnd();
    pts_ = static_cast<std::int64_t>(number() / time_bases_);
    checkTicks(pts_);
    if (in_.position() > end) damaged("syncpoint");
    skip(end - in_.position());
}

void NutReader::frameHeader(const FrameCode& code, std::uint64_t& size) {
    std::uint32_t flags = code.flags;
    if (flags & kCoded) flags ^= static_cast<std::uint32_t>(number());
    if (flags & kInvalid) damaged("frame code");
    if ((flags & kStreamId) && number() != 0) damaged("second stream");
    if (flags & kCodedPts) {
        const std::uint64_t coded = number();
        const std::uint64_t window = std::uint64_t{1} << msb_pts_shift_;
        if (coded >= window) {
            pts_ = static_cast<std::int64_t>(coded - window);
        } else {  // the low bits of a time near the last one
            const std::int64_t delta = pts_ - static_cast<std::int64_t>(window / 2);
            pts_ = static_cast<std::int64_t>((coded - static_cast<std::uint64_t>(delta)) & (window - 1)) + delta;
        }
    } else {
        pts_ += code.pts_delta;
    }
    checkTicks(pts_);
    size = code.size_lsb;
    if (flags & kSizeMsb) size += code.size_mul * number();
    if (flags & kMatchTime) signedNumber();
    std::uint64_t index = 0;
    if (flags & kHeaderIndex) index = number();
    std::uint64_t reserved = code.reserved;
    if (flags & kReserved) reserved = number();
    for (; reserved > 0; --reserved) number();
    if (flags & kChecksum) skip(4);
    // ffmpeg elides nothing and adds no side data to raw video; both would change the meaning of the bytes.
    if (index >= elision_.size() || elision_[index] != 0 || (flags & kSideData)) damaged("frame header");
    if (size > kMaxFrameBytes) damaged("frame too large");
}

/// Memory follows the bytes that arrive, not the announced size.
void NutReader::readBody(std::vector<std::uint8_t>& bytes, std::size_t size) {
    constexpr std::size_t kAtOnce = 4u << 20;
    std::size_t done = 0;
    while (done < size) {
        const std::size_t part =
            std::min(size - done, std::max({kAtOnce, done, bytes.size() - std::min(bytes.size(), done)}));
        bytes.resize(done + part);
        in_.read(std::span(bytes).subspan(done, part));
        done += part;
    }
    bytes.resize(size);
}

bool NutReader::next(std::vector<std::uint8_t>& bytes, std::int64_t& time_ns) {
    while (in_.more()) {
        const std::uint8_t first = in_.byte();
        if (first == 'N') {
            const std::uint64_t code = std::uint64_t{'N'} << 56 | bytes64(7);
            if (code == kSyncpoint) {
                syncpoint();
            } else {  // repeated headers, info packets, the index: nothing new
                const std::uint64_t end = packetEnd();
                skip(end - in_.position());
                if (code == kIndex) return false;
            }
            continue;
        }
        std::uint64_t size = 0;
        frameHeader(codes_[first], size);
        readBody(bytes, size);
        const auto num = static_cast<std::int64_t>(time_num_), den = static_cast<std::int64_t>(time_den_);
        if (std::abs(pts_) / den >= kMostSeconds / num) damaged("time");
        time_ns = pts_ / den * num * kBillion + pts_ % den * num * kBillion / den;
        return true;
    }
    return false;
}

}  // namespace fleifeisa::host
