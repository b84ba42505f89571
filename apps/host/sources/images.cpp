#include "sources/images.h"

#include <poll.h>
#include <sys/stat.h>
#include <sysexits.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "image/ImageFiles.h"
#include "sources/ffmpeg_source.h"

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;

constexpr double kRate = 10;  // images a second where nothing else is wanted

std::string lowerExtension(std::string_view path) {
    std::string extension = fs::path(path).extension().string();
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return extension;
}

/// Those that this program decodes itself; the others go through ffmpeg.
bool isOwnFormat(std::string_view path) {
    constexpr std::array kKnown = {".jpg", ".jpeg", ".png", ".ppm", ".pgm", ".pbm", ".pnm"};
    return std::ranges::count(kKnown, lowerExtension(path)) > 0;
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

std::vector<std::string> imagesOfDirectory(const std::string& directory) {
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator it(directory, error), end; !error && it != end; it.increment(error))
        if (isImageName(it->path().native())) names.push_back(it->path().string());
    if (error) throw SourceError(EX_NOINPUT, directory + ": " + error.message());
    if (names.empty()) throw SourceError(EX_NOINPUT, directory + ": no images in this directory");
    std::ranges::sort(names, naturalLess);
    return names;
}

/// One name a line, relative to the list's directory; empty lines and lines that begin with # are skipped.
std::vector<std::string> imagesOfList(const std::string& path) {
    std::ifstream in(path);
    if (!in) throw SourceError(EX_NOINPUT, path + ": " + std::strerror(errno));
    std::vector<std::string> names;
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        if (line.ends_with('\r')) line.pop_back();
        if (line.empty() || line.starts_with('#')) continue;
        const fs::path name = fs::absolute(fs::path(path)).parent_path() / line;
        std::error_code error;
        if (!fs::exists(name, error))
            throw SourceError(EX_NOINPUT, path + ": line " + std::to_string(number) + ": there is no file " + line);
        names.push_back(name.string());
    }
    if (names.empty()) throw SourceError(EX_NOINPUT, path + ": the list names no image");
    return names;
}

std::vector<std::string> imagesOf(const std::string& source) {
    if (source.starts_with("list:")) return imagesOfList(source.substr(5));
    return fs::is_directory(source) ? imagesOfDirectory(source) : std::vector{source};
}

}  // namespace

bool isImageName(std::string_view path) {
    constexpr std::array kOthers = {".bmp", ".tif", ".tiff", ".webp"};
    return isOwnFormat(path) || std::ranges::count(kOthers, lowerExtension(path)) > 0;
}

bool naturalLess(std::string_view a, std::string_view b) {
    const auto take_number = [](std::string_view& text) {
        const auto length = static_cast<std::size_t>(std::ranges::find_if_not(text, isDigit) - text.begin());
        std::string_view number = text.substr(0, length);
        text.remove_prefix(length);
        number.remove_prefix(std::min(number.find_first_not_of('0'), number.size()));
        return number;
    };
    for (std::string_view x = a, y = b; !x.empty() && !y.empty();) {
        if (isDigit(x.front()) && isDigit(y.front())) {
            const std::string_view m = take_number(x), n = take_number(y);
            if (m.size() != n.size()) return m.size() < n.size();
            if (m != n) return m < n;
        } else {
            if (x.front() != y.front())
                return static_cast<unsigned char>(x.front()) < static_cast<unsigned char>(y.front());
            x.remove_prefix(1);
            y.remove_prefix(1);
        }
        if (x.empty() != y.empty()) return x.empty();
    }
    return a < b;
}

ImageSource::ImageSource(const SourceOptions& options, const Event& stop)
    : options_(options),
      stop_(stop),
      names_(imagesOf(options.source)),
      rate_(options.rate > 0 ? options.rate : kRate) {}

bool ImageSource::next(RawFrame& frame) {
    while (at_ < names_.size()) {
        pollfd item{stop_.fd(), POLLIN, 0};
        if (::poll(&item, 1, 0) > 0) return false;
        const std::size_t number = at_++;
        const std::string fault = decode(names_[number], frame);
        if (fault.empty()) {
            frame.time_ns = std::llround(static_cast<double>(number) * 1e9 / rate_);
            return true;
        }
        ++damaged_;
        warnings_.push_back(fault + "; the image is left out");
    }
    if (damaged_ == names_.size()) throw SourceError(EX_DATAERR, options_.source + ": no image could be read");
    return false;
}

std::string ImageSource::decode(const std::string& name, RawFrame& frame) {
    if (!isOwnFormat(name)) return decodeByFfmpeg(name, frame);
    const LoadedImage image = LoadImageFile(name.c_str());
    const std::unique_ptr<unsigned char, decltype(&std::free)> owner(image.pixels, &std::free);
    if (!image.pixels) return image.error.substr(0, image.error.find_last_not_of('.') + 1);
    frame.layout = {*findFormat("rgb24"), image.width, image.height};
    frame.bytes.assign(image.pixels, image.pixels + frameBytes(frame.layout));
    return "";
}

std::string ImageSource::decodeByFfmpeg(const std::string& name, RawFrame& frame) {
    SourceOptions one = options_;
    one.source = name;
    one.rate = 0;
    try {
        FfmpegSource source(one, stop_);
        return source.next(frame) ? "" : name + ": no image in it";
    } catch (const SourceError& error) {
        if (error.code == EX_UNAVAILABLE) throw;
        return error.what();
    }
}

std::string ImageSource::complaints() const {
    if (damaged_ == 0) return "";
    return std::to_string(damaged_) + " of " + std::to_string(names_.size()) + " images could not be read";
}

}  // namespace fleifeisa::host
