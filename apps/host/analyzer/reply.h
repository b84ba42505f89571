// Replies of the analyzer: from exact bytes to fields.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fleifeisa::host {

/// One object of an analytics reply.
struct AnalyzerObject {
    int device;       ///< the three numbers of the reply's OID
    int analyzer_id;  ///
    int id;           ///< 0 (continues no track) to kMaxObjectId
    int left;   ///< pixels from the left edge of the frame, 0-based; may reach beyond the frame (boxes are whole cells)
    int top;    ///< pixels from the upper edge
    int width;  ///< pixels, at least 1
    int height;   ///< pixels, at least 1
    int density;  ///< percent of the box that is foreground, 0 to 100
};

// What a sound analyzer stays within. A reply beyond any of these is a broken analyzer's and is refused as a whole, so
// that nothing behind the parser has to fear for its arithmetic or its memory.
constexpr int kMaxObjectId = 99'999;
constexpr int kMaxFrameSide = 16'384;             ///< pixels
constexpr int kBoxMargin = 16;                    ///< pixels that a box of whole cells may reach beyond the frame
constexpr std::size_t kMaxObjects = 5000;         ///< in one reply
constexpr std::size_t kMaxReplyBytes = 1u << 20;  ///< kMaxObjects objects of at most 160 bytes are less

struct Reply {
    bool ok = false;            ///< "Status: OK"
    bool numbered = false;      ///< carries a Sequence-Number: the answer to a frame (start-up replies carry none)
    bool detection = false;     ///< an analytics reply, not a plain OK
    std::int64_t sequence = 0;  ///
    std::string timestamp;      ///< verbatim, without its leading blank
    std::string status_text;    ///< of an error reply
    std::vector<AnalyzerObject> objects;
};

/// Length of the complete reply that `bytes` begins with, 0 where more bytes are needed.
/// @throws std::runtime_error where the bytes cannot be the beginning of a reply
std::size_t replyLength(std::string_view bytes);

/// Parses one complete reply.
/// @throws std::runtime_error with what is wrong
Reply parseReply(std::string_view bytes);

}  // namespace fleifeisa::host
