// Difference of a pixel to the nearest well-supported cluster around it.
#include <cstdlib>

#include "vision/background/backgroundmodel.h"
#include "vision/background/clusterchannels.h"

int KsBackgroundCell::GetMinDifference(int minval, int R, int G, int B, int& Rd, int& Gd, int& Bd) const {
    const ColorValue p{R, G, B};
    for (int i = 0; i < nclusters; i++) {
        if (support[i] <= kMinSupport) continue;
        const int d = ColorChannels::Distance(p, clusters[i]);
        if (d >= minval) continue;
        minval = d;
        Rd = clusters[i].R - R;
        Gd = clusters[i].G - G;
        Bd = clusters[i].B - B;
    }
    return minval;
}

int KsBackgroundCell::GetMinDifferenceGray(int minval, int R, int& Rd) const {
    for (int i = 0; i < nclusters; i++) {
        if (support[i] <= kMinSupport) continue;
        const int d = std::abs(clusters[i].R - R);
        if (d >= minval) continue;
        minval = d;
        Rd = clusters[i].R - R;
    }
    return minval;
}

void BackgroundModel::GetDifference(int r, int c, int R, int Gr, int B, int& Rd, int& Gd, int& Bd) const {
    const int k = map1.At(r, c);
    if (k < 0) return;
    int min = Look(k).GetMinDifference(kFarthest, R, Gr, B, Rd, Gd, Bd);
    for (int slot = 4; slot < 8; slot++) {
        const int m = n[k].n[slot];
        if (m >= 0) min = Look(m).GetMinDifference(min, R, Gr, B, Rd, Gd, Bd);
    }
}

void BackgroundModel::GetDifferenceGray(int r, int c, int Gr, int& Gd) const {
    const int k = map1.At(r, c);
    if (k < 0) return;
    int min = Look(k).GetMinDifferenceGray(kFarthest, Gr, Gd);
    for (int slot = 4; slot < 8; slot++) {
        const int m = n[k].n[slot];
        if (m >= 0) min = Look(m).GetMinDifferenceGray(min, Gr, Gd);
    }
}
