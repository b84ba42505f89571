#include "image/ImageFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <new>
#include <string_view>

#include "image/imageformats.h"

namespace {

enum class Format { kUnknown, kPnm, kBitmap, kJpeg, kPng };

constexpr std::size_t kSignature = 8;  // bytes that tell every format
constexpr std::size_t kFirstRead = 1 << 16, kLargestRead = 1 << 24;

bool Begins(FileBytes bytes, std::string_view signature) {
    return bytes.size() >= signature.size() && std::memcmp(bytes.data(), signature.data(), signature.size()) == 0;
}

Format Recognise(FileBytes bytes) {
    using std::string_view_literals::operator""sv;
    if (Begins(bytes, "\xff\xd8\xff"sv)) return Format::kJpeg;
    if (Begins(bytes, "\x89PNG\r\n\x1a\n"sv)) return Format::kPng;
    if (bytes.size() < 2 || bytes[0] != 'P') return Format::kUnknown;
    switch (bytes[1]) {
        case '2':
        case '3':
        case '5':
        case '6':
            return Format::kPnm;
        case '1':
        case '4':
        case '7':
            return Format::kBitmap;
        default:
            return Format::kUnknown;
    }
}

class Descriptor {
 public:
    explicit Descriptor(int opened) : fd(opened) {}
    ~Descriptor() {
        if (fd >= 0) close(fd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    const int fd;
};

// Appends up to `count` bytes of the file; fewer at its end. False on a read error.
bool Append(int fd, std::vector<unsigned char>& bytes, std::size_t count) {
    const std::size_t old = bytes.size();
    bytes.resize(old + count);
    std::size_t got = 0;
    while (got < count) {
        const ssize_t n = read(fd, bytes.data() + old + got, count - got);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return false;
        if (n == 0) break;
        got += static_cast<std::size_t>(n);
    }
    bytes.resize(old + got);
    return true;
}

std::string Reason(const char* what) {
    return std::string(what) + " (" + std::strerror(errno) + ")";
}

// Reads in growing pieces, so that memory follows the bytes that arrive. What no loader knows, and what stands behind
// an image of known length, is left unread.
std::string ReadAll(int fd, std::vector<unsigned char>& bytes) {
    std::size_t needed = kMaxImageFile;
    for (std::size_t step = kFirstRead;; step = std::min(step * 2, kLargestRead)) {
        const std::size_t old = bytes.size();
        if (!Append(fd, bytes, step)) return Reason("it cannot be read");
        if (bytes.size() < old + step) return "";
        if (old == 0) {
            if (Recognise(bytes) == Format::kUnknown) return "";
            if (const std::size_t size = BinaryPnmSize(bytes); size != 0) needed = size;
        }
        if (bytes.size() > needed) return needed == kMaxImageFile ? "it is larger than 1 GiB" : "";
    }
}

LoadedImage Decode(FileBytes bytes) {
    switch (Recognise(bytes)) {
        case Format::kPnm:
            return LoadPnm(bytes);
        case Format::kJpeg:
            return LoadJpeg(bytes);
        case Format::kPng:
            return LoadPng(bytes);
        case Format::kBitmap:
            return Refuse("bitmaps (P1, P4) and PAM (P7) are not read; grey maps and pixmaps are (P2, P3, P5, P6)");
        default:
            break;
    }
    if (bytes.empty()) return Refuse("it is empty");
    return Refuse(bytes.size() < kSignature ? "it is too short for an image"
                                            : "its format is unknown; this build reads " + ImageFormatsBuiltIn());
}

}  // namespace

LoadedImage Refuse(std::string reason) {
    for (char& c : reason) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f) c = '?';
    }
    LoadedImage image;
    image.error = std::move(reason);
    return image;
}

bool SizeAllowed(std::uint64_t width, std::uint64_t height, std::string& error) {
    constexpr std::uint64_t kMaxPixels = kMaxImageBytes / 3;
    if (width == 0 || height == 0) {
        error = "it has no pixels";
        return false;
    }
    if (width <= kMaxPixels && height <= kMaxPixels && width * height <= kMaxPixels) return true;
    error = "it announces " + std::to_string(width) + "x" + std::to_string(height) +
            " pixels; width x height x 3 may be at most " + std::to_string(kMaxImageBytes);
    return false;
}

Pixels AllocatePixels(int width, int height) {
    return Pixels(static_cast<unsigned char*>(
        std::malloc(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3)));
}

FileContent ReadImageFile(const char* path) {
    FileContent content;
    // Without O_NONBLOCK the open itself would wait for the writer of a pipe.
    const Descriptor file(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    if (file.fd < 0 || fstat(file.fd, &content.before) != 0) {
        content.error = Reason("it cannot be opened");
    } else if (S_ISDIR(content.before.st_mode)) {
        content.error = "it is a directory";
    } else if (!S_ISREG(content.before.st_mode)) {
        content.error = "it is not a regular file";
    } else if (content.before.st_size > kMaxImageFile) {
        content.error = "it is larger than 1 GiB";
    } else {
        try {
            content.error = ReadAll(file.fd, content.bytes);
        } catch (const std::bad_alloc&) {
            content.error = "there is not enough memory for it";
        }
        if (fstat(file.fd, &content.after) != 0) content.error = Reason("it cannot be read");
    }
    return content;
}

LoadedImage DecodeContent(const FileContent& content, const char* path) {
    LoadedImage image = content.error.empty() ? Decode(content.bytes) : Refuse(content.error);
    if (!image.error.empty()) image = Refuse("Cannot load the image " + std::string(path) + ": " + image.error + ".");
    return image;
}

LoadedImage LoadImageBytes(FileBytes bytes) {
    return Decode(bytes);
}

LoadedImage LoadImageFile(const char* path) {
    return DecodeContent(ReadImageFile(path), path);
}

std::string ImageFormatsBuiltIn() {
    std::string text = "PNM";
    if (!JpegLibrary().empty()) text += ", JPEG (" + JpegLibrary() + ")";
    if (!PngLibrary().empty()) text += ", PNG (" + PngLibrary() + ")";
    return text;
}
