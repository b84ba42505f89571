// Images as a source: a directory, a list, or one of them.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "sources/source.h"

namespace fleifeisa::host {

/// By the file's name: one of the formats that count as images.
bool isImageName(std::string_view path);

/// Order of names as people count: img2 before img10; equal numbers by their bytes.
bool naturalLess(std::string_view a, std::string_view b);

/// Decodes one image at a time. A damaged one is reported and counted; its time passes, so that the others keep theirs.
class ImageSource : public Source {
 public:
    /// @throws SourceError where there is nothing to read
    ImageSource(const SourceOptions& options, const Event& stop);
    bool next(RawFrame& frame) override;
    std::int64_t expectedFrames() const override { return static_cast<std::int64_t>(names_.size()); }
    double rate() const override { return rate_; }
    std::string complaints() const override;
    std::vector<std::string> takeWarnings() override { return std::exchange(warnings_, {}); }

 private:
    /// What is wrong with the image, "" where nothing is.
    std::string decode(const std::string& name, RawFrame& frame);
    std::string decodeByFfmpeg(const std::string& name, RawFrame& frame);

    const SourceOptions options_;
    const Event& stop_;
    std::vector<std::string> names_, warnings_;
    std::size_t at_ = 0, damaged_ = 0;
    double rate_;
};

}  // namespace fleifeisa::host
