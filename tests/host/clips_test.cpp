// What clips are cut from: transport streams, segments, rings, and when a clip's time has come.
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <random>

#include "recorder/clip_jobs.h"
#include "recorder/ring.h"
#include "recorder/segment_maker.h"

namespace fleifeisa::host {
namespace {

constexpr std::int64_t kSecond = 1'000'000'000, kWrap = std::int64_t{1} << 33;
constexpr int kTable = 0x1000, kVideo = 0x100, kSound = 0x101;

using Bytes = std::vector<std::uint8_t>;

Bytes packet(int pid, const Bytes& payload, bool starts, bool key = false) {
    Bytes bytes = {0x47, static_cast<std::uint8_t>((starts ? 0x40 : 0) | pid >> 8), static_cast<std::uint8_t>(pid),
                   0x30};
    bytes.push_back(static_cast<std::uint8_t>(kTsPacket - 5 - payload.size()));  // filled up by the adaptation field
    bytes.push_back(key ? 0x40 : 0);
    bytes.resize(kTsPacket - payload.size(), 0xFF);
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return bytes;
}

Bytes tables(std::uint8_t type = 0x1B) {
    Bytes programs = {0, 0, 0xB0, 13, 0, 1, 0xC1, 0, 0, 0, 1, kTable >> 8, kTable & 0xFF, 1, 2, 3, 4};
    Bytes streams = {0, 2, 0xB0, 23, 0, 1, 0xC1, 0, 0, kVideo >> 8, kVideo & 0xFF, 0xF0, 0};
    for (const Bytes& stream :
         {Bytes{type, kVideo >> 8, kVideo & 0xFF, 0xF0, 0}, Bytes{0x0F, kSound >> 8, kSound & 0xFF, 0xF0, 0}})
        streams.insert(streams.end(), stream.begin(), stream.end());
    streams.insert(streams.end(), {1, 2, 3, 4});
    Bytes both = packet(0, programs, true);
    const Bytes second = packet(kTable, streams, true);
    both.insert(both.end(), second.begin(), second.end());
    return both;
}

/// The first packet of a picture.
Bytes picture(std::int64_t pts, std::int64_t dts, bool key, bool parameters = true) {
    Bytes pes = {0, 0, 1, 0xE0, 0, 0, 0x80, 0xC0, 10};
    for (const auto& [mark, ticks] : {std::pair(0x30, pts), std::pair(0x10, dts)}) {
        const auto time = static_cast<std::uint64_t>(ticks + kWrap) % kWrap;
        pes.push_back(static_cast<std::uint8_t>(mark | (time >> 30 & 7) << 1 | 1));
        pes.push_back(static_cast<std::uint8_t>(time >> 22));
        pes.push_back(static_cast<std::uint8_t>((time >> 15 << 1 & 0xFE) | 1));
        pes.push_back(static_cast<std::uint8_t>(time >> 7));
        pes.push_back(static_cast<std::uint8_t>((time << 1 & 0xFE) | 1));
    }
    const Bytes first = {0, 0, 0, 1, static_cast<std::uint8_t>(key && parameters ? 0x67 : 0x41)};
    pes.insert(pes.end(), first.begin(), first.end());
    return packet(kVideo, pes, true, key);
}

struct Seen {
    std::vector<TsPicture> pictures;
    std::size_t packets = 0;
};

Seen readAll(const Bytes& bytes, std::size_t piece) {
    Seen seen;
    TsReader reader([&seen](TsPacket, const TsPicture* begins) {
        ++seen.packets;
        if (begins) seen.pictures.push_back(*begins);
    });
    for (std::size_t at = 0; at < bytes.size(); at += piece)
        reader.read(std::span(bytes).subspan(at, std::min(piece, bytes.size() - at)));
    return seen;
}

TEST(Ts, PicturesInPiecesOfAnyLength) {
    Bytes stream = tables();
    // Decoding times before nought, and times that begin again after 2^33 ticks, go on.
    const std::array<std::array<std::int64_t, 3>, 6> wanted = {{{900'000, -3600, 1},
                                                                {907'200, 0, 0},
                                                                {kWrap / 2 - 1000, kWrap / 2 - 8000, 0},
                                                                {kWrap / 4 * 3, kWrap / 4 * 3, 0},
                                                                {kWrap - 1, kWrap - 3600, 1},
                                                                {kWrap + 7200, kWrap, 0}}};
    for (const auto& [pts, dts, key] : wanted) {
        for (const Bytes& each : {picture(pts, dts, key != 0), packet(kVideo, {1, 2, 3}, false),
                                  packet(kSound, {0, 0, 1, 0xC0}, true), packet(0x1FF, {9}, true)})
            stream.insert(stream.end(), each.begin(), each.end());
        if (dts == 0) stream.insert(stream.end(), {0, 1, 2});  // and some bytes that are none of a packet
    }
    for (const std::size_t piece :
         {std::size_t{1}, std::size_t{187}, std::size_t{188}, std::size_t{1000}, stream.size()}) {
        const Seen seen = readAll(stream, piece);
        EXPECT_EQ(seen.packets, 3 * wanted.size()) << piece;
        ASSERT_EQ(seen.pictures.size(), wanted.size()) << piece;
        for (std::size_t i = 0; i < wanted.size(); ++i) {
            EXPECT_EQ(seen.pictures[i].pts, wanted[i][0]);
            EXPECT_EQ(seen.pictures[i].dts, wanted[i][1]);
            EXPECT_EQ(seen.pictures[i].key, wanted[i][2] != 0);
        }
    }
    Bytes bare = tables();
    const Bytes none = picture(0, 0, true, false);
    bare.insert(bare.end(), none.begin(), none.end());
    EXPECT_FALSE(readAll(bare, 188).pictures.at(0).key) << "no decoder can begin without parameters";
    Bytes other = tables(0x06);  // a codec that is none of ours
    const Bytes first = picture(0, 0, true);
    other.insert(other.end(), first.begin(), first.end());
    EXPECT_EQ(readAll(other, 188).packets, 0u);
}

TEST(Ts, WrittenTimesAreRead) {
    for (const std::int64_t ticks : {std::int64_t{0}, std::int64_t{1}, std::int64_t{0x155555555}, kWrap - 1, -1L}) {
        Bytes bytes = picture(77, 33, true);
        const std::size_t at = payloadOf(TsPacket(bytes));
        EXPECT_TRUE(setPesTime(std::span(bytes).subspan(at), ticks));
        std::uint64_t dts = 0;
        EXPECT_EQ(pesTime(std::span(bytes).subspan(at), dts), static_cast<std::uint64_t>((ticks + kWrap) % kWrap));
        EXPECT_EQ(dts, static_cast<std::uint64_t>((ticks + kWrap) % kWrap));
    }
}

/// Segments of pictures, ten a second, a key picture each `keys`, frames `behind` pictures later than their packets.
std::vector<Segment> made(int pictures, int keys, int behind, int missing = -1) {
    std::vector<Segment> segments;
    SegmentMaker maker([&segments](Segment segment) { segments.push_back(std::move(segment)); });
    maker.begin(5);
    maker.packets(tables());
    const auto frame = [&](int n) {
        if (n >= 0 && n < pictures && n != missing) maker.frame(n * 9000, kSecond + n * kSecond / 10);
    };
    for (int n = 0; n < pictures; ++n) {
        maker.packets(picture(n * 9000 + n % 3, n * 9000 - 18'000, n % keys == 0));  // times are rounded a little
        maker.packets(packet(kVideo, Bytes(100, 7), false));
        frame(n - behind);
    }
    for (int n = pictures - behind; n < pictures; ++n) frame(n);
    maker.end();
    return segments;
}

TEST(Segments, AreCutAtKeyPicturesAndKnowTheirTimes) {
    struct Row {
        int pictures, keys, behind;
        std::vector<std::size_t> lengths;
        std::vector<bool> begin;
    };
    const Row rows[] = {{65, 10, 0, {20, 20, 20, 5}, {true, true, true, true}},
                        {65, 10, 15, {20, 20, 20, 5}, {true, true, true, true}},
                        {65, 25, 3, {25, 25, 15}, {true, true, true}},
                        {130, 100, 3, {40, 40, 20, 30}, {true, false, false, true}}};
    for (const Row& row : rows) {
        const auto segments = made(row.pictures, row.keys, row.behind);
        ASSERT_EQ(segments.size(), row.lengths.size()) << row.keys;
        std::int64_t n = 0;
        for (std::size_t i = 0; i < segments.size(); ++i) {
            const SegmentHead& head = segments[i].head;
            EXPECT_EQ(head.pictures.size(), row.lengths[i]);
            EXPECT_EQ(head.key(), row.begin[i]);
            EXPECT_EQ(head.run, 5);
            EXPECT_EQ(head.number, static_cast<std::int64_t>(i));
            EXPECT_EQ(segments[i].tables, tables());
            EXPECT_EQ(segments[i].packets.size(), 2 * kTsPacket * head.pictures.size());
            for (const SegmentPicture& each : head.pictures) EXPECT_EQ(each.time_ns, kSecond + n++ * kSecond / 10);
            std::size_t length = 0;
            Bytes file = encodeHead(head);
            const std::size_t wanted = file.size();
            file.insert(file.end(), segments[i].tables.begin(), segments[i].tables.end());
            const auto read = decodeHead(file, length);
            ASSERT_TRUE(read);
            EXPECT_EQ(length, wanted);
            EXPECT_EQ(read->pictures, head.pictures);
            // Cut off anywhere, or with a bit turned over: nothing, or a head that is as sound as any.
            for (std::size_t cut = 0; cut < wanted; cut += 53)
                EXPECT_FALSE(decodeHead(std::span(file).first(cut), length)) << cut;
        }
    }
    const auto gap = made(30, 10, 2, 7);
    EXPECT_EQ(gap.at(0).head.pictures.at(7).time_ns, kNoTime);
    EXPECT_EQ(gap.at(0).head.pictures.at(8).time_ns, kSecond + 8 * kSecond / 10);
    EXPECT_TRUE(made(10, 100, 50).size() == 1) << "frames that come after the end of the packets";
}

RingSegment segment(std::int64_t run, std::int64_t number, std::int64_t start_s, std::int64_t end_s, bool key = true) {
    return {run, number, start_s * kSecond, end_s * kSecond, 1000, key};
}

TEST(Ring, CutsOutOfOneRun) {
    Ring ring("ring");
    for (const RingSegment& each : {segment(1, 0, 100, 102), segment(1, 1, 102, 106), segment(1, 2, 106, 110, false),
                                    segment(1, 3, 110, 112), segment(2, 0, 150, 152), segment(2, 1, 152, 154)})
        ring.add(each);
    EXPECT_EQ(ring.bytes(), 6000);
    struct Row {
        std::int64_t from, at, to;
        std::vector<std::pair<std::int64_t, std::int64_t>> wanted;  ///< run and number
    };
    const Row rows[] = {
        {100, 101, 101, {{1, 0}}},
        {103, 104, 105, {{1, 1}}},
        {108, 109, 111, {{1, 1}, {1, 2}, {1, 3}}},  // a part needs what it goes on with
        {111, 112, 200, {{1, 3}}},                  // a clip ends with its run
        {115, 120, 130, {{1, 3}}},                  // behind the run's end: what was seen last
        {145, 149, 153, {{1, 3}}},
        {145, 150, 153, {{2, 0}, {2, 1}}},  // and none of the run before
        {90, 99, 103, {{1, 0}, {1, 1}}},
        {300, 310, 320, {}},
        {50, 60, 70, {}},
    };
    for (const Row& row : rows) {
        std::vector<std::pair<std::int64_t, std::int64_t>> found;
        for (const RingSegment& each : ring.cut(row.from * kSecond, row.at * kSecond, row.to * kSecond))
            found.emplace_back(each.run, each.number);
        EXPECT_EQ(found, row.wanted) << row.from << ' ' << row.at;
    }
    EXPECT_EQ(ring.takeOldest(), segment(1, 0, 100, 102));
    EXPECT_EQ(ring.bytes(), 5000);
}

TEST(Ring, IsFoundAgain) {
    const std::string directory = testing::TempDir() + "/ring";
    std::filesystem::remove_all(directory);
    Ring before(directory);
    for (const RingSegment& each :
         {segment(7, 10, 86'398, 86'401), segment(7, 9, 86'390, 86'398, false), segment(3, 0, 5, 6)}) {
        std::filesystem::create_directories(std::filesystem::path(before.path(each)).parent_path());
        std::ofstream(before.path(each)) << std::string(1000, 'x');
    }
    std::ofstream(before.path(segment(3, 0, 5, 6)) + ".part") << "x";
    std::ofstream(directory + "/notes.txt") << "x";
    Ring ring(directory);
    ring.load();
    ASSERT_EQ(ring.segments().size(), 3u);
    EXPECT_EQ(ring.segments()[0], segment(3, 0, 5, 6));
    EXPECT_EQ(ring.segments()[1], segment(7, 9, 86'390, 86'398, false));
    EXPECT_EQ(ring.segments()[2], segment(7, 10, 86'398, 86'401));
    EXPECT_FALSE(std::filesystem::exists(before.path(segment(3, 0, 5, 6)) + ".part"));
    for (const char* name : {"", "1-2-3-4-x.ts", "1-2-3-k.ts", "-1-2-3-4-k.ts", "1-2-4-3-k.ts", "1-2-3-4-k.tsx",
                             "99999999999999999999-2-3-4-k.ts"})
        EXPECT_FALSE(parseSegmentName(name)) << name;
}

TEST(ClipJobs, WaitForTheirVideo) {
    const auto event = [](std::int64_t start_s, std::int64_t end_s, EventState state) {
        CameraEvent message;
        message.number = 4;
        message.kind = EventKind::kZone;
        message.state = state;
        message.start_ns = start_s * kSecond;
        if (end_s > 0) message.end_ns = end_s * kSecond;
        return message;
    };
    const Clock::time_point now = Clock::now();
    struct Row {
        const char* what;
        std::int64_t end;  ///< of the event that begins at 104
        std::vector<RingSegment> ring;
        OpenRuns open;
        double later;  ///< seconds
        bool due;
    };
    const OpenRuns first = {{1, {100 * kSecond, 0, false}}};
    const Row rows[] = {
        {"it still runs", 0, {segment(1, 0, 100, 110)}, first, 0, false},
        {"not all is there", 106, {segment(1, 0, 100, 110)}, first, 0, false},
        {"all is there", 106, {segment(1, 0, 100, 110), segment(1, 1, 110, 116)}, first, 0, true},
        {"nothing more comes of the run", 106, {segment(1, 0, 100, 110)}, {}, 0, true},
        {"nor while it runs", 0, {segment(1, 0, 100, 110)}, {}, 0, true},
        {"the run in which it began is not on disk",
         106,
         {segment(1, 0, 80, 90)},
         {{2, {103 * kSecond, 0, false}}},
         0,
         false},
        {"a later run is none of its", 106, {segment(1, 0, 100, 105)}, {{2, {107 * kSecond, 0, false}}}, 0, true},
        {"no video came at all", 106, {}, first, 39, false},
        {"and will not come", 106, {}, first, 41, true},
        {"as much as a clip may last", 0, {segment(1, 0, 100, 110), segment(1, 1, 110, 714)}, first, 0, true},
    };
    for (const Row& row : rows) {
        ClipJobs jobs;
        Ring ring("ring");
        for (const RingSegment& each : row.ring) ring.add(each);
        EXPECT_TRUE(jobs.take(event(104, 0, EventState::kStart), now));
        if (row.end > 0) {
            EXPECT_FALSE(jobs.take(event(104, row.end, EventState::kEnd), now));
        }
        EXPECT_EQ(jobs.due({}, ring, row.open, now + seconds(row.later)) != nullptr, row.due) << row.what;
        EXPECT_EQ(jobs.needed({}), 99 * kSecond);
    }
    ClipJobs none;
    EXPECT_FALSE(none.take(event(1, 2, EventState::kUpdate), now)) << "of an event whose clip was made";
}

}  // namespace
}  // namespace fleifeisa::host
