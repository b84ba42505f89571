// The one image type of the analyzer: a view over a raw buffer of 8-bit RGB pixels.
//
// Layout: interleaved, 3 bytes per pixel in the order red, green, blue; rows top to bottom, each row NofC pixels
// left to right, no padding. Channel k of the pixel at row r, column c is byte (r * NofC + c) * 3 + k.
// Every accessor takes the row first. Nothing is checked: the callers guarantee indices and buffer sizes.
#pragma once

#include <cstddef>
#include <memory>

class KsColorImage {
 public:
    bool raw;               // true once a buffer has been attached: the image then owns rawsrc
    unsigned char* rawsrc;  // NofR * NofC * 3 bytes from malloc
    int NofC;               // columns, pixels
    int NofR;               // rows, pixels

    KsColorImage() : raw(false), rawsrc(nullptr), NofC(0), NofR(0) {}

    // Attaches `src` (from malloc) without copying or checking. Note the order: rows (height) before columns (width). A
    // share of the buffer attached before is given up.
    void KsReadImageMemory(unsigned char* src, int rows, int cols);

    // Releases an attached buffer. Deliberate: leaves every field as it is, so a second call without a new
    // KsReadImageMemory in between would release the same buffer twice; callers that cannot rule that out
    // detach the buffer afterwards (see Detach; StreamIo.BodyAndImageOfDifferentLength). Only a share clears `raw`:
    // others may still have the buffer.
    void KsFreeImageMemory();

    // From now on others may keep the attached buffer (see Shared): KsFreeImageMemory gives up this image's share only.
    // The pixels must not change any more. Throws std::bad_alloc, without a buffer then.
    void Share();

    // The buffer where it is shared, otherwise null.
    const std::shared_ptr<unsigned char[]>& Shared() const { return shared; }

    // Forgets the buffer without releasing it, except that a share is given up: the image is as freshly constructed.
    void Detach() { *this = KsColorImage(); }

    // Loads an image file (see ImageFiles.h for the formats). On failure one line goes to standard error and the
    // image is left without pixels. An attached buffer is released first. Returns whether pixels were attached.
    bool KsReadImageFile(const char* file);

    // The same for a "file:" URL; any other scheme is refused with a line on standard error.
    bool KsReadImageUrl(const char* url);

    // Writes the red channel as a plain grey map (P2), each value followed by a blank. Nothing is written without an
    // attached buffer or where the file cannot be opened.
    void KsWriteImage(const char* file);

    int Red(int r, int c) const { return rawsrc[Index(r, c)]; }
    int Green(int r, int c) const { return rawsrc[Index(r, c) + 1]; }
    int Blue(int r, int c) const { return rawsrc[Index(r, c) + 2]; }
    void SetRed(int r, int c, unsigned char v) { rawsrc[Index(r, c)] = v; }
    void SetGreen(int r, int c, unsigned char v) { rawsrc[Index(r, c) + 1] = v; }
    void SetBlue(int r, int c, unsigned char v) { rawsrc[Index(r, c) + 2] = v; }

    int Width() const { return NofC; }
    int Height() const { return NofR; }
    int GetBitsPerPixel() const { return 24; }

 private:
    std::shared_ptr<unsigned char[]> shared;

    std::size_t Index(int r, int c) const {
        return (static_cast<std::size_t>(r) * static_cast<std::size_t>(NofC) + static_cast<std::size_t>(c)) * 3;
    }
};
