// Differences against the background: per pixel, then summed per cell.
#include "backgroundmodel.h"
#include "gridcolordiff.h"
#include "pixelwalk.h"

void GridColorDiff::ComputeDifferences(KsColorImage& CI, BackgroundModel* B) {
    const KsColorImage& bkg = B->IBkg;
    std::size_t i = 0;
    for (int r = 0; r < NofR; r++) {
        for (int c = 0; c < NofC; c++, i++) {
            if (B->BType == MULTIPLE) {
                if (CIr == COLOR)
                    B->GetDifference(r, c, CI.Red(r, c), CI.Green(r, c), CI.Blue(r, c), RedD[i], GreenD[i], BlueD[i]);
                else
                    B->GetDifferenceGray(r, c, CI.Red(r, c), RedD[i]);
            } else {
                // Deliberate: frame minus background here, cluster minus frame above.
                RedD[i] = CI.Red(r, c) - bkg.Red(r, c);
                if (CIr == COLOR) {
                    GreenD[i] = CI.Green(r, c) - bkg.Green(r, c);
                    BlueD[i] = CI.Blue(r, c) - bkg.Blue(r, c);
                }
            }
        }
    }
}

void GridColorDiff::AddDifferences() {
    for (int k = 0; k < cnum; k++) {
        KsCellDiff& cell = cd[k];
        int red = 0, green = 0, blue = 0;
        ForEachPixel(cell, NofR, NofC, [&](int r, int c) {
            const std::size_t i =
                static_cast<std::size_t>(r) * static_cast<std::size_t>(NofC) + static_cast<std::size_t>(c);
            red += RedD[i];
            if (CIr == COLOR) {
                green += GreenD[i];
                blue += BlueD[i];
            }
        });
        cell.RedDiff = red;
        if (CIr == COLOR) {
            cell.GreenDiff = green;
            cell.BlueDiff = blue;
        }
    }
}
