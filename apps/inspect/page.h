// The page that shows everything side by side.
#pragma once

#include <string>
#include <vector>

#include "inspect/facts.h"

namespace fleifeisa::inspect {

/// A picture that has been written.
struct Figure {
    std::string file;  ///< name beside the page
    std::string title, caption;
    int width, height;  ///< pixels of the file
};

struct Link {
    std::string file, text;
};

/// One HTML page in the same directory as its pictures. It refers to them by name, needs no script and nothing from
/// elsewhere, so that the directory can be copied or served as it is.
class Page {
 public:
    Page(std::string input, const Settings& settings) : input_(std::move(input)), settings_(settings) {}
    void add(const FrameFacts& facts, const std::vector<Figure>& figures, const std::vector<Link>& files);
    int frames() const { return frames_; }
    /// Throws std::runtime_error where the file cannot be written.
    void write(const std::string& path) const;

 private:
    std::string input_;
    Settings settings_;
    int frames_ = 0;
    std::string nav_, body_;
};

}  // namespace fleifeisa::inspect
