// Brightness histograms and the comparison of a frame's distribution with the background's.
#include <algorithm>
#include <cstdlib>

#include "vision/grid/gridcolordiff.h"
#include "vision/pixelwalk.h"

void CountBrightness(const KsColorImage& CI, ImageType type, int rows, int cols, int* hist) {
    std::fill_n(hist, 256, 0);
    for (int r = 0; r < rows; r++)
        for (int c = 0; c < cols; c++)
            hist[type == COLOR ? (CI.Red(r, c) + CI.Green(r, c) + CI.Blue(r, c) + 1) / 3 : CI.Red(r, c)]++;
}

void GridColorDiff::ImageBrightnessHistogram(KsColorImage& CI) {
    CountBrightness(CI, CIr, NofR, NofC, chist);
}

void GridColorDiff::HistogramEqualisation(KsColorImage&) {}

namespace {

constexpr int kLevels = 256;

// Cumulative counts; the last one stands once more behind the end, so that a look one level ahead stays inside.
struct Cumulative {
    int at[kLevels + 1];
    explicit Cumulative(const int* hist) {
        int sum = 0;
        for (int k = 0; k < kLevels; k++) at[k] = sum += hist[k];
        at[kLevels] = sum;
    }
};

// Walks both cumulative histograms upwards and maps every current level i that it reaches onto the background level j
// whose count comes nearest. Levels that it does not reach keep their earlier map.
void MatchLevels(const Cumulative& Bc, const Cumulative& Cc, int* lut) {
    int i = 0, j = 0;
    while (i < kLevels && j < kLevels) {
        const int a = Bc.at[j], b = Cc.at[i], d = std::abs(a - b);
        if (a == b) {
            lut[i++] = j++;
        } else if (a < b) {
            const int b1 = Cc.at[i + 1];
            lut[i] = j;
            if (std::abs(a - b1) > d) {
                int k = j + 1;
                while (k < kLevels && std::abs(Bc.at[k] - b) < std::abs(Bc.at[k] - b1)) k++;
                j = k;
            }
            i++;
        } else {
            const int a1 = Bc.at[j + 1];
            if (d >= std::abs(a1 - b)) {
                j++;
                continue;
            }
            int n = 1;
            while (i + n < kLevels && std::abs(a - Cc.at[i + n]) < std::abs(a1 - Cc.at[i + n])) n++;
            std::fill_n(lut + i, n, j);
            i += n;
            j++;
        }
    }
}

}  // namespace

void GridColorDiff::ScoreHistDifference() {
    const Cumulative Bc(bhist);
    MatchLevels(Bc, Cumulative(chist), lut);

    int current[kLevels];
    std::copy_n(chist, kLevels, current);
    std::fill_n(chist, kLevels, 0);
    for (int k = 0; k < kLevels; k++) chist[lut[k]] += current[k];

    const Cumulative Cc(chist);
    long double score = 0;
    for (int k = 0; k < kLevels; k++) score += std::abs(Cc.at[k] - Bc.at[k]);
    Equalise = 1.0L > score / (static_cast<long double>(NofR) * NofC);
}
