// Inner side of ImageFiles.h: one loader a format, and what they share.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "image/ImageFiles.h"

using FileBytes = std::span<const unsigned char>;

struct ReleasePixels {
    void operator()(unsigned char* p) const { std::free(p); }
};
using Pixels = std::unique_ptr<unsigned char, ReleasePixels>;

// The refusal of one image; characters that do not print become '?', so that it stays one line.
LoadedImage Refuse(std::string reason);

// Whether an image may have this size; if not, `error` says why.
bool SizeAllowed(std::uint64_t width, std::uint64_t height, std::string& error);

// Room for an image of an allowed size; null where memory is short.
Pixels AllocatePixels(int width, int height);

// `bytes` begin with the format's signature.
LoadedImage LoadPnm(FileBytes bytes);
LoadedImage LoadJpeg(FileBytes bytes);
LoadedImage LoadPng(FileBytes bytes);
// The bytes of a binary grey map or pixmap whose header stands in `begin`, with the header; else 0.
std::size_t BinaryPnmSize(FileBytes begin);
std::string JpegLibrary();  // name and version, empty where not built in
std::string PngLibrary();

// A regular file's bytes with its state before and after they were read: equal states mean that nobody wrote meanwhile.
struct FileContent {
    std::vector<unsigned char> bytes;
    struct stat before {
    }, after{};
    std::string error;  // empty on success
};
FileContent ReadImageFile(const char* path);

// The image in the content, or why there is none, with the path.
LoadedImage DecodeContent(const FileContent& content, const char* path);
