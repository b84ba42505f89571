// Frames from image files and file: URLs.
#include <strings.h>

#include <iostream>
#include <string>
#include <string_view>

#include "image/imageformats.h"
#include "image/kscolor.h"

namespace {

// One write, so that the line stays whole beside those of other processes.
void Complain(const std::string& line) {
    std::cerr << line + "\n" << std::flush;
}

bool TakePrefix(std::string_view& text, std::string_view prefix) {
    if (text.size() < prefix.size() || strncasecmp(text.data(), prefix.data(), prefix.size()) != 0) return false;
    text.remove_prefix(prefix.size());
    return true;
}

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    const char letter = static_cast<char>(c | 0x20);
    return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

// Replaces %41 by A and so on. Null, or what is wrong.
const char* PercentDecode(std::string_view text, std::string& decoded) {
    for (std::size_t i = 0; i < text.size(); i++) {
        char c = text[i];
        if (c == '%') {
            const int high = i + 2 < text.size() ? HexDigit(text[i + 1]) : -1;
            const int low = high >= 0 ? HexDigit(text[i + 2]) : -1;
            if (low < 0) return "a % in it is not followed by two hexadecimal digits";
            c = static_cast<char>(high * 16 + low);
            if (c == '\0') return "it contains %00";
            i += 2;
        }
        decoded += c;
    }
    return nullptr;
}

// The path that a URL names. Null, or why there is none.
const char* PathOfUrl(std::string_view url, std::string& path) {
    if (!TakePrefix(url, "file:")) return "only file: URLs are read";
    if (url.starts_with("//")) {
        url.remove_prefix(2);
        TakePrefix(url, "localhost");
        if (!url.starts_with('/')) return "only files of this machine are read (file:///path or file://localhost/path)";
    }
    if (!url.starts_with('/')) return "its path does not begin with /";
    if (url.find_first_of("?#") != std::string_view::npos)
        return "a file has no query or fragment; in names ? is %3F and # is %23";
    return PercentDecode(url, path);
}

}  // namespace

bool KsColorImage::KsReadImageFile(const char* file) {
    KsFreeImageMemory();
    Detach();
    const LoadedImage image = LoadImageFile(file);
    if (image.pixels == nullptr) {
        Complain(image.error);
        return false;
    }
    KsReadImageMemory(image.pixels, image.height, image.width);
    return true;
}

bool KsColorImage::KsReadImageUrl(const char* url) {
    std::string path;
    const char* reason = PathOfUrl(url, path);
    if (reason == nullptr) return KsReadImageFile(path.c_str());
    KsFreeImageMemory();
    Detach();
    Complain(Refuse(std::string("Cannot load the image ").append(url).append(": ").append(reason).append(".")).error);
    return false;
}
