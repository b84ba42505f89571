// Image files as frames: PNM by own code, JPEG and PNG through libjpeg-turbo and libpng where the build found them
// (docs/image-files.md). The format is recognised by the content, never by the file's name.
//
// Every loader either gives the whole image or says in one line why not: a file that ends early, whose checksum or
// coding is wrong or that holds less than it announces is refused, so that a half-written file is never a frame.
#pragma once

#include <span>
#include <string>

constexpr long kMaxImageBytes = 268435456;  // width x height x 3 of an image: the largest frame of the stream protocol
constexpr long kMaxImageFile = 1073741824;  // bytes of a file

struct LoadedImage {
    unsigned char* pixels = nullptr;  // width * height * 3 bytes from malloc, laid out as in kscolor.h; the caller
                                      // releases them with free. Null on failure
    int width = 0, height = 0;        // pixels, at least 1; 0 on failure
    std::string error;                // one line without a line end; empty on success
};

// Loads a regular file. Never blocks on pipes or devices. Memory follows the bytes that the file has, at most in the
// proportion that its format can compress, not the size that its header announces.
LoadedImage LoadImageFile(const char* path);

// The same for a file's bytes.
LoadedImage LoadImageBytes(std::span<const unsigned char> bytes);

// What this build reads, e.g. "PNM, JPEG (libjpeg-turbo 2.1.5), PNG (libpng 1.6.39)".
std::string ImageFormatsBuiltIn();
