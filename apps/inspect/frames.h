// Where frames come from, and which of them are looked at.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "image/kscolor.h"

namespace fleifeisa::inspect {

/// Frame numbers as in "900", "890-910,950" or "1200-" (to the end). Numbers begin with 1.
class FrameRanges {
 public:
    /// Throws std::invalid_argument with a message that names the part which cannot be read.
    static FrameRanges parse(const std::string& text);
    bool contains(int number) const;
    bool empty() const { return ranges_.empty(); }
    /// The highest number, or INT_MAX for ranges without an end.
    int last() const;

 private:
    struct Range {
        int first, last;
    };
    std::vector<Range> ranges_;
};

/// A frame as it came. The receiver owns the pixels.
struct SourceFrame {
    KsColorImage image;
    std::string name;       ///< of the image file; empty for a stream
    std::string timestamp;  ///< as the host sent it; empty for image files
    int sequence = 0;       ///< as the host sent it; 0 for image files
};

class FrameSource {
 public:
    virtual ~FrameSource() = default;
    /// False at the end. A frame without pixels has no buffer.
    virtual bool next(SourceFrame& frame) = 0;
    /// Frames of another size than the first: dropped uncounted (a stream) or counted without pixels (image files).
    virtual bool dropsOtherSizes() const = 0;
    /// Whether the input ended inside a message, or could not be read to its end.
    virtual bool truncated() const { return false; }
};

using Warn = std::function<void(const std::string&)>;

/// The requests that a host sent, from a file or ("-") standard input. Throws std::runtime_error where the file cannot
/// be opened.
std::unique_ptr<FrameSource> openStream(const std::string& path, Warn warn);
/// Image files, one frame each; one that cannot be read is a frame without pixels.
std::unique_ptr<FrameSource> openImages(std::vector<std::string> names, Warn warn);

/// Whether the file begins as a request stream does.
bool looksLikeStream(const std::string& path);

}  // namespace fleifeisa::inspect
