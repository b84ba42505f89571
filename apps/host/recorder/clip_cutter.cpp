#include "recorder/clip_cutter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include "common/leftovers.h"

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;

/// The list's ticks are the file's own; the index stands in front, so that it plays while it is fetched. Without a list
/// of edits, which would end the clip before its last frame where the rate varies: times of frames are then told with
/// negative offsets, so that the first one is shown at 0.
const std::array<std::string, 12> kContainer = {"-video_track_timescale",
                                                std::to_string(kTicksPerSecond),
                                                "-use_editlist",
                                                "0",
                                                "-movflags",
                                                "+faststart+negative_cts_offsets",
                                                "-map_metadata",
                                                "-1",
                                                "-fflags",
                                                "+bitexact",
                                                "-f",
                                                "mp4"};

/// A segment of the clip, without its packets.
struct Piece {
    std::string path;
    SegmentHead head;
    std::size_t packets_at = 0;  ///< in the file
    bool goes_on = false;        ///< with the piece before
};

std::vector<std::uint8_t> readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Pieces of which each goes on with the one before, or can be begun with.
std::vector<Piece> readHeads(const ClipOrder& order, bool& gaps) {
    std::vector<Piece> pieces;
    for (const std::string& path : order.segments) {
        Piece piece{path, {}, 0, false};
        const std::vector<std::uint8_t> file = readFile(path);
        auto head = decodeHead(file, piece.packets_at);
        const bool goes_on = head && !pieces.empty() && pieces.back().head.run == head->run &&
                             pieces.back().head.number + 1 == head->number;
        if (!pieces.empty() && !goes_on) gaps = true;
        if (!head || (!goes_on && !head->key())) continue;
        piece.goes_on = goes_on;
        piece.head = std::move(*head);
        pieces.push_back(std::move(piece));
    }
    if (pieces.empty()) throw ClipError("no video of that time is left");
    return pieces;
}

/// Which pictures of the pieces belong to the clip.
struct Choice {
    std::size_t first = 0;      ///< of the first piece
    std::int64_t begin = 0;     ///< pts of that picture: none before it is shown
    std::int64_t last_dts = 0;  ///< later ones are left out
};

Choice choose(const std::vector<Piece>& pieces, const ClipOrder& order) {
    Choice choice;
    const auto& pictures = pieces.front().head.pictures;
    for (std::size_t i = 0; i < pictures.size(); ++i)
        if (pictures[i].key && (i == 0 || (pictures[i].time_ns != kNoTime && pictures[i].time_ns <= order.from_ns)))
            choice.first = i;
    choice.begin = choice.last_dts = pictures[choice.first].pts;
    for (const Piece& piece : pieces)
        for (const SegmentPicture& each : piece.head.pictures)
            if (each.time_ns != kNoTime && each.time_ns <= order.to_ns)
                choice.last_dts = std::max(choice.last_dts, each.pts);
    return choice;
}

/// Packets are numbered anew, as some are left out.
class Renumbered {
 public:
    void take(std::span<const std::uint8_t> packets, std::vector<std::uint8_t>& to) {
        for (; packets.size() >= kTsPacket; packets = packets.subspan(kTsPacket)) {
            const auto packet = packets.first<kTsPacket>();
            const bool has_payload = (packet[3] & 0x10) != 0;
            std::uint8_t& counter = counters_[pidOf(packet)];
            to.insert(to.end(), packet.begin(), packet.end());
            std::uint8_t& flags = to[to.size() - kTsPacket + 3];
            flags = static_cast<std::uint8_t>((flags & 0xF0u) | (counter & 0x0Fu));
            if (has_payload) ++counter;
        }
    }

 private:
    std::map<int, std::uint8_t> counters_;
};

void syncFile(const std::string& path) {
    const Fd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file || ::fsync(file.get()) != 0) throw ClipError(path + ": " + std::strerror(errno));
}

void rename(const std::string& from, const std::string& to) {
    if (::rename(from.c_str(), to.c_str()) != 0) throw ClipError(to + ": " + std::strerror(errno));
}

std::int64_t sizeOf(const std::string& path) {
    std::error_code error;
    const auto bytes = fs::file_size(path, error);
    return error ? 0 : static_cast<std::int64_t>(bytes);
}

std::string partOf(const std::string& path) {
    return path + ".part";
}

/// Removes what is not whole.
struct PartFile {
    explicit PartFile(const std::string& path) : name(partOf(path)), leftover(name) {}
    PartFile(const PartFile&) = delete;
    PartFile& operator=(const PartFile&) = delete;
    ~PartFile() {
        std::error_code error;
        fs::remove(name, error);
    }
    const std::string name;
    const Leftover leftover;
};

struct Shown {
    std::int64_t pts, time_ns;
};

void writeTimes(const std::string& path, const std::vector<Shown>& shown, const std::string& codec,
                std::int64_t lead_ns) {
    std::string pts, times;
    for (const Shown& each : shown) {
        pts += (pts.empty() ? "" : ",") + std::to_string(each.pts);
        times += (times.empty() ? "" : ",") + (each.time_ns == kNoTime ? "null" : std::to_string(each.time_ns));
    }
    std::ofstream file(path, std::ios::binary);
    file << "{\"codec\":\"" << codec << "\",\"timescale\":" << kTicksPerSecond << ",\"lead_ns\":" << lead_ns
         << ",\"pts\":[" << pts << "],\"time_ns\":[" << times << "]}\n";
    file.close();
    if (!file) throw ClipError(path + ": cannot be written");
}

/// The program's table says which codec it is.
std::string codecOf(std::span<const std::uint8_t> tables) {
    constexpr std::size_t kStreamType = 2 * kTsPacket - kTsPacket + 5 + 12;
    return tables.size() > kStreamType && tables[kStreamType] == 0x24 ? "hevc" : "h264";
}

}  // namespace

ClipMade cutClip(const ClipOrder& order, const Event& stop) {
    ClipMade made;
    const std::vector<Piece> pieces = readHeads(order, made.gaps);
    const Choice choice = choose(pieces, order);
    std::error_code error;
    fs::create_directories(fs::path(order.file).parent_path(), error);
    if (error) throw ClipError(order.file + ": " + error.message());

    const PartFile clip(order.file), list(order.times);
    std::optional<Transcoder> ffmpeg;
    Renumbered packets;
    std::vector<Shown> shown;
    bool leading = false;
    std::int64_t from_pts = 0;
    for (const Piece& piece : pieces) {
        const std::vector<std::uint8_t> file = readFile(piece.path);
        if (file.size() < piece.packets_at + 2 * kTsPacket) throw ClipError(piece.path + ": is cut off");
        const auto tables = std::span(file).subspan(piece.packets_at, 2 * kTsPacket);
        const auto body = std::span(file).subspan(piece.packets_at + 2 * kTsPacket);
        if (!ffmpeg) {
            made.codec = codecOf(tables);
            std::vector<std::string> arguments = {"-f", "mpegts", "-i", "pipe:0", "-map", "0:v:0", "-c", "copy"};
            if (order.sound) arguments.insert(arguments.end(), {"-map", "0:a:0?"});
            if (made.codec == "hevc") arguments.insert(arguments.end(), {"-tag:v", "hvc1"});
            arguments.insert(arguments.end(), kContainer.begin(), kContainer.end());
            arguments.push_back("file:" + clip.name);
            ffmpeg.emplace(arguments, true, stop);
        }
        std::vector<std::uint8_t> out;
        packets.take(tables, out);
        const auto& pictures = piece.head.pictures;
        const std::size_t first = &piece == &pieces.front() ? choice.first : 0;
        if (!piece.goes_on) {
            leading = true;
            from_pts = pictures[first].pts;
        }
        for (std::size_t i = first; i < pictures.size(); ++i) {
            const SegmentPicture& picture = pictures[i];
            if (picture.dts > choice.last_dts) break;
            if (picture.pts > from_pts) leading = false;
            if (leading && picture.pts < from_pts) continue;
            const std::size_t end = i + 1 < pictures.size() ? pictures[i + 1].offset : body.size();
            if (end > body.size()) throw ClipError(piece.path + ": is cut off");
            packets.take(body.subspan(picture.offset, end - picture.offset), out);
            shown.push_back({picture.pts - choice.begin, picture.time_ns});
        }
        ffmpeg->feed(out);
    }
    ffmpeg->finish();

    std::ranges::sort(shown, {}, &Shown::pts);
    made.start_ns = made.end_ns = shown.front().time_ns == kNoTime ? order.from_ns : shown.front().time_ns;
    for (const Shown& each : shown) made.end_ns = std::max(made.end_ns, each.time_ns);
    writeTimes(list.name, shown, made.codec, order.from_ns - made.start_ns);
    syncFile(clip.name);
    syncFile(list.name);
    rename(clip.name, order.file);
    rename(list.name, order.times);
    syncFile(fs::path(order.file).parent_path().string());
    made.bytes = sizeOf(order.file);
    made.times_bytes = sizeOf(order.times);
    made.frames = shown.size();
    made.width = ffmpeg->width();
    made.height = ffmpeg->height();
    return made;
}

std::int64_t makePlayable(const std::string& clip, const std::string& file, const Event& stop) {
    const PartFile part(file);
    std::vector<std::string> arguments = {"-protocol_whitelist",
                                          "file",
                                          "-i",
                                          "file:" + clip,
                                          "-map",
                                          "0:v:0",
                                          "-map",
                                          "0:a:0?",
                                          "-fps_mode",
                                          "passthrough",
                                          "-enc_time_base",
                                          "-1",
                                          "-c:v",
                                          "libx264",
                                          "-preset",
                                          "veryfast",
                                          "-crf",
                                          "23",
                                          "-pix_fmt",
                                          "yuv420p",
                                          "-vf",
                                          "scale=trunc(iw/2)*2:trunc(ih/2)*2",
                                          "-c:a",
                                          "copy",
                                          "-threads",
                                          "1"};
    arguments.insert(arguments.end(), kContainer.begin(), kContainer.end());
    arguments.push_back("file:" + part.name);
    Transcoder ffmpeg(arguments, false, stop);
    ffmpeg.finish();
    syncFile(part.name);
    rename(part.name, file);
    return sizeOf(file);
}

}  // namespace fleifeisa::host
