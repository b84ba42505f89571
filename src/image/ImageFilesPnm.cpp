// Grey maps and pixmaps, plain (P2, P3) and binary (P5, P6).
//
//     P6   # comments reach to the end of their line, wherever white space may stand
//     320 240   width, height
//     255       largest sample, 1 .. 65535; one white space character ends the header
//     samples   binary: one byte each, two (high byte first) where the largest exceeds 255
//               plain: decimal numbers, each followed by white space
#include <cstddef>

#include "image/imageformats.h"

namespace {

constexpr unsigned kMaxNumber = 0x7fffffff;

bool IsSpace(int c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// Reads a header and, in the plain forms, the samples.
class Reader {
 public:
    explicit Reader(FileBytes file) : bytes(file), at(2) {}  // behind the signature

    // The next number with the one white space character (or comment) that ends it. False with `error` set where there
    // is none. Deliberate: a number at the very end of the file is refused, since the rest of it may be missing
    // (ImageFiles.Refusals).
    bool Number(unsigned& value, const char* what) {
        while (at < bytes.size() && (IsSpace(bytes[at]) || bytes[at] == '#')) SkipOne();
        if (at == bytes.size()) return Fail("it ends before its ", what);
        if (bytes[at] < '0' || bytes[at] > '9') return Fail("it is damaged: no number stands for its ", what);
        std::uint64_t v = 0;
        for (; at < bytes.size() && bytes[at] >= '0' && bytes[at] <= '9'; at++) {
            v = v * 10 + static_cast<unsigned>(bytes[at] - '0');
            if (v > kMaxNumber) return Fail("it is damaged: too large a number stands for its ", what);
        }
        if (at == bytes.size()) return Fail("it ends within a number, without white space behind its ", what);
        if (!IsSpace(bytes[at]) && bytes[at] != '#') return Fail("it is damaged: no number stands for its ", what);
        SkipOne();
        value = static_cast<unsigned>(v);
        return true;
    }

    FileBytes Rest() const { return bytes.subspan(at); }

    std::string error;

 private:
    // One white space character, or a comment with the end of its line.
    void SkipOne() {
        if (bytes[at] == '#')
            while (at < bytes.size() && bytes[at] != '\n' && bytes[at] != '\r') at++;
        if (at < bytes.size()) at++;
    }
    bool Fail(const char* text, const char* what) {
        error = std::string(text) + what;
        return false;
    }

    FileBytes bytes;
    std::size_t at;
};

// The sample as a level of 0 .. 255, to the nearest; a half goes up. Exact for a largest sample of 255, and the same
// as the reduction of 16-bit PNG files for 65535.
unsigned char Level(unsigned sample, unsigned largest) {
    return static_cast<unsigned char>((sample * 255u + largest / 2) / largest);
}

struct Raster {
    unsigned width, height;  // of an allowed size
    unsigned largest;        // sample
    bool plain;
    bool grey;  // one sample fills all three channels

    std::size_t Samples() const { return std::size_t{width} * height * (grey ? 1 : 3); }
    // The least that the samples take in the file; a plain one takes a digit and a separator.
    std::size_t Bytes() const { return Samples() * (plain || largest > 255 ? 2 : 1); }
};

// The header with what is wrong in reader.error, empty where nothing is.
Raster ReadHeader(FileBytes bytes, Reader& reader) {
    Raster raster{0, 0, 0, bytes[1] < '5', bytes[1] == '2' || bytes[1] == '5'};
    if (bytes.size() > 2 && !IsSpace(bytes[2]) && bytes[2] != '#')
        reader.error = "its format is unknown";
    else if (reader.Number(raster.width, "width") && reader.Number(raster.height, "height") &&
             reader.Number(raster.largest, "largest sample") &&
             SizeAllowed(raster.width, raster.height, reader.error) && (raster.largest < 1 || raster.largest > 65535))
        reader.error = "it is damaged: its largest sample is not within 1 and 65535";
    return raster;
}

void Store(const Raster& raster, std::size_t i, unsigned sample, unsigned char* pixels) {
    const unsigned char level = Level(sample, raster.largest);
    if (raster.grey)
        pixels[3 * i] = pixels[3 * i + 1] = pixels[3 * i + 2] = level;
    else
        pixels[i] = level;
}

constexpr char kTooLarge[] = "it is damaged: a sample exceeds the largest that it announces";

// Both return what is wrong, null where nothing is.
const char* ReadBinary(const Raster& raster, FileBytes data, unsigned char* pixels) {
    const bool wide = raster.largest > 255;
    for (std::size_t i = 0; i < raster.Samples(); i++) {
        const unsigned sample = wide ? data[2 * i] * 256u + data[2 * i + 1] : data[i];
        if (sample > raster.largest) return kTooLarge;
        Store(raster, i, sample, pixels);
    }
    return nullptr;
}

const char* ReadPlain(const Raster& raster, Reader& reader, unsigned char* pixels) {
    for (std::size_t i = 0; i < raster.Samples(); i++) {
        unsigned sample = 0;
        if (!reader.Number(sample, "samples")) return reader.error.c_str();
        if (sample > raster.largest) return kTooLarge;
        Store(raster, i, sample, pixels);
    }
    return nullptr;
}

}  // namespace

std::size_t BinaryPnmSize(FileBytes begin) {
    if (begin.size() < 2 || begin[0] != 'P' || (begin[1] != '5' && begin[1] != '6')) return 0;
    Reader reader(begin);
    const Raster raster = ReadHeader(begin, reader);
    return reader.error.empty() ? begin.size() - reader.Rest().size() + raster.Bytes() : 0;
}

LoadedImage LoadPnm(FileBytes bytes) {
    Reader reader(bytes);
    const Raster raster = ReadHeader(bytes, reader);
    if (!reader.error.empty()) return Refuse(reader.error);
    // Nothing is allocated for samples that the file cannot hold.
    if (reader.Rest().size() < raster.Bytes()) return Refuse("it is too short for its pixels");

    LoadedImage image{nullptr, static_cast<int>(raster.width), static_cast<int>(raster.height), ""};
    Pixels pixels = AllocatePixels(image.width, image.height);
    if (!pixels) return Refuse("there is not enough memory for it");
    const char* wrong =
        raster.plain ? ReadPlain(raster, reader, pixels.get()) : ReadBinary(raster, reader.Rest(), pixels.get());
    if (wrong != nullptr) return Refuse(wrong);
    image.pixels = pixels.release();
    return image;
}
