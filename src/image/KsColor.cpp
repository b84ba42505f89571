#include "image/kscolor.h"

#include <cstdio>
#include <cstdlib>

void KsColorImage::KsReadImageMemory(unsigned char* src, int rows, int cols) {
    raw = true;
    rawsrc = src;
    NofR = rows;
    NofC = cols;
    shared = nullptr;
}

void KsColorImage::KsFreeImageMemory() {
    if (shared == nullptr) {
        if (raw) std::free(rawsrc);
        return;
    }
    raw = false;
    shared = nullptr;
}

void KsColorImage::Share() {
    if (!raw || shared != nullptr) return;
    raw = false;  // where there is no memory, the pointer releases the buffer
    shared.reset(rawsrc, std::free);
    raw = true;
}

void KsColorImage::KsWriteImage(const char* file) {
    if (!raw) return;
    std::FILE* f = std::fopen(file, "w");
    if (f == nullptr) return;
    std::fprintf(f, "P2\n%d %d\n255\n", NofC, NofR);
    for (int r = 0; r < NofR; r++) {
        for (int c = 0; c < NofC; c++) std::fprintf(f, "%d ", Red(r, c));
        std::fputc('\n', f);
    }
    std::fclose(f);
}
