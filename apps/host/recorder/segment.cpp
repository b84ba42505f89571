#include "recorder/segment.h"

#include <algorithm>

namespace fleifeisa::host {
namespace {

// Little-endian: mark, version, pictures (u32), run, number (i64), then of each picture pts, dts, time (i64), offset
// with the key bit on top (u32). Cut into null packets of 184 bytes payload each.
constexpr std::uint32_t kMark = 0x47535646, kVersion = 1;
constexpr std::size_t kFixed = 28, kPicture = 28, kPayload = 184;
constexpr std::uint32_t kKeyBit = 0x80000000u;
constexpr std::size_t kMostPictures = 100'000;
constexpr int kNullPid = 0x1FFF;

template <typename Number>
void put(std::vector<std::uint8_t>& to, Number number) {
    auto bits = static_cast<std::uint64_t>(number);
    for (std::size_t i = 0; i < sizeof number; ++i, bits >>= 8) to.push_back(static_cast<std::uint8_t>(bits));
}

/// The payload of the null packets, byte by byte; zeros behind their end.
class NullPackets {
 public:
    explicit NullPackets(std::span<const std::uint8_t> file) : file_(file) {}

    template <typename Number>
    Number take() {
        std::uint64_t bits = 0;
        for (std::size_t i = 0; i < sizeof(Number); ++i) bits |= std::uint64_t{byte()} << 8 * i;
        return static_cast<Number>(bits);
    }
    bool good() const { return good_; }
    std::size_t packets() const { return (at_ + kPayload - 1) / kPayload; }

 private:
    std::uint8_t byte() {
        const std::size_t packet = at_ / kPayload * kTsPacket;
        good_ =
            good_ && packet + kTsPacket <= file_.size() && pidOf(file_.subspan(packet).first<kTsPacket>()) == kNullPid;
        return good_ ? file_[packet + kTsPacket - kPayload + at_++ % kPayload] : std::uint8_t{0};
    }

    std::span<const std::uint8_t> file_;
    std::size_t at_ = 0;
    bool good_ = true;
};

}  // namespace

std::int64_t SegmentHead::startNs() const {
    std::int64_t start = kNoTime;
    for (const SegmentPicture& each : pictures)
        if (each.time_ns != kNoTime && (start == kNoTime || each.time_ns < start)) start = each.time_ns;
    return start;
}

std::int64_t SegmentHead::endNs() const {
    std::int64_t end = kNoTime;
    for (const SegmentPicture& each : pictures) end = std::max(end, each.time_ns);
    return end;
}

std::int64_t SegmentHead::lastPts() const {
    return std::ranges::max_element(pictures, {}, &SegmentPicture::pts)->pts;
}

std::vector<std::uint8_t> encodeHead(const SegmentHead& head) {
    std::vector<std::uint8_t> bytes;
    put(bytes, kMark);
    put(bytes, kVersion);
    put(bytes, static_cast<std::uint32_t>(head.pictures.size()));
    put(bytes, head.run);
    put(bytes, head.number);
    for (const SegmentPicture& each : head.pictures) {
        put(bytes, each.pts);
        put(bytes, each.dts);
        put(bytes, each.time_ns);
        put(bytes, each.offset | (each.key ? kKeyBit : 0));
    }
    bytes.resize((bytes.size() + kPayload - 1) / kPayload * kPayload);
    std::vector<std::uint8_t> packets;
    for (std::size_t at = 0; at < bytes.size(); at += kPayload) {
        packets.insert(packets.end(), {0x47, kNullPid >> 8, kNullPid & 0xFF, 0x10});
        packets.insert(packets.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at),
                       bytes.begin() + static_cast<std::ptrdiff_t>(at + kPayload));
    }
    return packets;
}

std::optional<SegmentHead> decodeHead(std::span<const std::uint8_t> file, std::size_t& length) {
    NullPackets in(file);
    if (in.take<std::uint32_t>() != kMark || in.take<std::uint32_t>() != kVersion) return std::nullopt;
    const auto count = in.take<std::uint32_t>();
    SegmentHead head;
    head.run = in.take<std::int64_t>();
    head.number = in.take<std::int64_t>();
    if (!in.good() || count == 0 || count > kMostPictures || (kFixed + count * kPicture) > file.size())
        return std::nullopt;
    head.pictures.resize(count);
    std::uint32_t before = 0;
    for (SegmentPicture& each : head.pictures) {
        each.pts = in.take<std::int64_t>();
        each.dts = in.take<std::int64_t>();
        each.time_ns = in.take<std::int64_t>();
        const auto offset = in.take<std::uint32_t>();
        each.offset = offset & ~kKeyBit;
        each.key = (offset & kKeyBit) != 0;
        if (each.offset % kTsPacket != 0 || each.offset < before) return std::nullopt;
        before = each.offset;
    }
    if (!in.good()) return std::nullopt;
    length = in.packets() * kTsPacket;
    return head;
}

}  // namespace fleifeisa::host
