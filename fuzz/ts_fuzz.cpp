// Transport streams and the heads of segments: whatever comes, packets are whole and in order, memory follows the
// bytes.
#include <cstdint>

#include "fuzz/bytes.h"
#include "recorder/segment_maker.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace fleifeisa::host;
    const std::span bytes(data, size);
    std::size_t kept = 0;
    SegmentMaker maker([&](const Segment& segment) {
        FUZZ_CHECK(!segment.head.pictures.empty() && segment.packets.size() % kTsPacket == 0, "a segment");
        FUZZ_CHECK(segment.head.pictures.back().offset < segment.packets.size(), "a picture has packets");
        kept += segment.packets.size();
        std::size_t length = 0;
        const auto head = decodeHead(encodeHead(segment.head), length);
        FUZZ_CHECK(head && head->pictures == segment.head.pictures, "a head is read as it was written");
    });
    maker.begin(1);
    // A frame at any time that the first bytes name, so that there are segments at all.
    for (std::size_t i = 0; i + 4 < size && i < 400; i += 4)
        maker.frame(static_cast<std::int64_t>(data[i]) << 8 | data[i + 1], 1);
    const std::size_t half = size / 3;
    maker.packets(bytes.first(half));
    maker.packets(bytes.subspan(half));
    maker.end();
    FUZZ_CHECK(kept <= size, "no more than there was");
    std::size_t length = 0;
    if (const auto head = decodeHead(bytes, length)) FUZZ_CHECK(length <= size && !head->pictures.empty(), "a head");
    return 0;
}
