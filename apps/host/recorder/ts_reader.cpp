#include "recorder/ts_reader.h"

#include <algorithm>

namespace fleifeisa::host {
namespace {

constexpr std::uint8_t kSync = 0x47;
constexpr std::int64_t kWrap = std::int64_t{1} << 33;
constexpr std::uint8_t kH264 = 0x1B, kH265 = 0x24, kAac = 0x0F;  // stream types

/// Mark, stream and length; the header's rest holds no mark of its own.
constexpr std::size_t kPesHeader = 6;

using Bytes = std::span<const std::uint8_t>;

unsigned pair(Bytes bytes, std::size_t at) {
    return static_cast<unsigned>(bytes[at] << 8 | bytes[at + 1]);
}

bool startsUnit(TsPacket packet) {
    return (packet[1] & 0x40) != 0;
}

/// The adaptation field's random_access_indicator.
bool saysKey(TsPacket packet) {
    return (packet[3] & 0x20) != 0 && packet[4] > 0 && (packet[5] & 0x40) != 0;
}

/// Whether a picture of H.264 that others may precede (no IDR picture) comes without the codec's parameters, so that no
/// decoder can begin with it: of a file whose header holds them ffmpeg repeats them before IDR pictures only.
bool lacksParameters(Bytes payload) {
    constexpr unsigned kSlice = 1, kParameters = 7;
    for (std::size_t i = 0; i + 3 < payload.size(); ++i) {
        if (payload[i] != 0 || payload[i + 1] != 0 || payload[i + 2] != 1) continue;
        const unsigned type = payload[i + 3] & 0x1Fu;
        if (type == kParameters) return false;
        if (type == kSlice) return true;
    }
    return false;
}

/// A table's section in a packet of its own, as ffmpeg writes it, between its header and its checksum. Empty where it
/// is longer or another table.
Bytes sectionOf(TsPacket packet, std::uint8_t table) {
    constexpr std::size_t kHeader = 8, kChecksum = 4;
    Bytes payload = Bytes(packet).subspan(payloadOf(packet));
    if (!startsUnit(packet) || payload.empty() || payload.size() < std::size_t{1} + payload[0]) return {};
    payload = payload.subspan(std::size_t{1} + payload[0]);
    if (payload.size() < kHeader || payload[0] != table) return {};
    const std::size_t length = 3 + (pair(payload, 1) & 0xFFFu);
    if (length > payload.size() || length < kHeader + kChecksum) return {};
    return payload.subspan(kHeader, length - kHeader - kChecksum);
}

std::uint64_t timeAt(Bytes bytes) {
    return std::uint64_t{bytes[0] >> 1 & 7u} << 30 | std::uint64_t{pair(bytes, 1) >> 1} << 15 | pair(bytes, 3) >> 1;
}

}  // namespace

int pidOf(TsPacket packet) {
    return static_cast<int>(pair(packet, 1) & 0x1FFFu);
}

std::size_t payloadOf(TsPacket packet) {
    if ((packet[3] & 0x10) == 0) return kTsPacket;
    if ((packet[3] & 0x20) == 0) return 4;
    return std::min<std::size_t>(kTsPacket, std::size_t{5} + packet[4]);
}

/// 00 00 01, stream, length (2), flags (2), length of the header's rest, times of 5 bytes each.
std::optional<std::uint64_t> pesTime(Bytes pes, std::uint64_t& dts) {
    if (pes.size() < 14 || pes[0] != 0 || pes[1] != 0 || pes[2] != 1) return std::nullopt;
    const unsigned times = pes[7] >> 6;
    if (times < 2 || pes[8] < 5) return std::nullopt;
    const std::uint64_t pts = timeAt(pes.subspan(9));
    dts = times == 3 && pes[8] >= 10 && pes.size() >= 19 ? timeAt(pes.subspan(14)) : pts;
    return pts;
}

bool setPesTime(std::span<std::uint8_t> pes, std::int64_t ticks) {
    std::uint64_t dts = 0;
    if (!pesTime(pes, dts)) return false;
    const auto time = static_cast<std::uint64_t>(ticks) & static_cast<std::uint64_t>(kWrap - 1);
    const auto put = [&pes, time](std::size_t at) {
        pes[at] = static_cast<std::uint8_t>((pes[at] & 0xF1u) | (time >> 30 & 7) << 1);
        pes[at + 1] = static_cast<std::uint8_t>(time >> 22);
        pes[at + 2] = static_cast<std::uint8_t>((time >> 15 << 1 & 0xFE) | 1);
        pes[at + 3] = static_cast<std::uint8_t>(time >> 7);
        pes[at + 4] = static_cast<std::uint8_t>((time << 1 & 0xFE) | 1);
    };
    put(9);
    if (pes[7] >> 6 == 3 && pes[8] >= 10 && pes.size() >= 19) put(14);
    return true;
}

void TsReader::read(Bytes bytes) {
    // Whole packets are taken where they lie; only what is left is kept, less than a packet.
    if (!rest_.empty()) {
        const std::size_t missing = std::min(kTsPacket - rest_.size(), bytes.size());
        rest_.insert(rest_.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(missing));
        bytes = bytes.subspan(missing);
        if (rest_.size() < kTsPacket) return;
        packet(Bytes(rest_).first<kTsPacket>());
        rest_.clear();
    }
    while (!bytes.empty()) {
        if (bytes[0] != kSync) {
            ++damaged_;
            bytes = bytes.subspan(1);
        } else if (bytes.size() < kTsPacket) {
            rest_.assign(bytes.begin(), bytes.end());
            return;
        } else {
            packet(bytes.first<kTsPacket>());
            bytes = bytes.subspan(kTsPacket);
        }
    }
}

void TsReader::packet(TsPacket packet) {
    const int pid = pidOf(packet);
    if (pid == 0) return keepTable(0, packet), programs(sectionOf(packet, 0));
    if (pid == table_pid_) return keepTable(1, packet), streams(sectionOf(packet, 2));
    const auto others = std::span(other_pids_).first(others_);
    if (pid != video_pid_ && std::ranges::find(others, pid) == others.end()) return;
    std::optional<TsPicture> picture;
    if (pid == video_pid_ && startsUnit(packet)) {
        const Bytes payload = Bytes(packet).subspan(payloadOf(packet));
        picture =
            pictureOf(payload, saysKey(packet) && (hevc_ || !lacksParameters(payload.subspan(
                                                                std::min<std::size_t>(payload.size(), kPesHeader)))));
        if (!picture) ++damaged_;
    }
    take_(packet, picture ? &*picture : nullptr);
}

void TsReader::keepTable(std::size_t which, TsPacket packet) {
    tables_.resize(2 * kTsPacket);
    std::ranges::copy(packet, tables_.begin() + static_cast<std::ptrdiff_t>(which * kTsPacket));
}

/// Pairs of a program's number and the PID of its table; number 0 is something else. The first one is ours.
void TsReader::programs(Bytes section) {
    for (; section.size() >= 4; section = section.subspan(4)) {
        if (pair(section, 0) == 0) continue;
        table_pid_ = static_cast<int>(pair(section, 2) & 0x1FFFu);
        return;
    }
}

/// The clock's PID, descriptors, then of each stream: type, PID, descriptors.
void TsReader::streams(Bytes section) {
    if (section.size() < 4) return;
    std::size_t skip = 4 + (pair(section, 2) & 0xFFFu);
    video_pid_ = -1;
    others_ = 0;
    while (section.size() >= skip + 5) {
        section = section.subspan(skip);
        const int pid = static_cast<int>(pair(section, 1) & 0x1FFFu);
        if ((section[0] == kH264 || section[0] == kH265) && video_pid_ < 0) {
            video_pid_ = pid;
            hevc_ = section[0] == kH265;
        } else if (section[0] == kAac && others_ < other_pids_.size()) {
            other_pids_[others_++] = pid;
        }
        skip = 5 + (pair(section, 3) & 0xFFFu);
    }
}

std::optional<TsPicture> TsReader::pictureOf(Bytes pes, bool key) {
    std::uint64_t dts = 0;
    const auto pts = pesTime(pes, dts);
    if (!pts) return std::nullopt;
    TsPicture picture;
    picture.dts = continued(dts);
    picture.pts = continued(*pts);
    picture.key = key;
    latest_ = picture.dts;
    return picture;
}

/// The moment nearest to the latest one whose lowest 33 bits these are.
std::int64_t TsReader::continued(std::uint64_t ticks) {
    const std::int64_t near = latest_.value_or(0);
    std::int64_t away = (static_cast<std::int64_t>(ticks) - near) % kWrap;
    if (away >= kWrap / 2) away -= kWrap;
    if (away < -kWrap / 2) away += kWrap;
    return near + away;
}

}  // namespace fleifeisa::host
