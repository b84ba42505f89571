// The per-frame update of the background model.
#include <cstring>

#include "vision/background/backgroundprivate.h"
#include "vision/background/randomdraws.h"
#include "vision/pixelwalk.h"

namespace {

// A foreground cell is updated when a uniform draw exceeds this: on about 3 frames in 10.
constexpr double kSkipForeground = 0.7;
constexpr double kTwoToMinus31 = 4.656612873077393e-10;

}  // namespace

void BackgroundModel::UpdateSingle(bool updateall) {
    for (int i = 0; i < G->cnum_2; i++) G->aux[i] = G->conf[i] <= 0.0 || updateall;
    // Deliberate: the draws only advance the shared generator (Background.SingleModelDrawsAndHistogram).
    for (int i = 0; i < G->cnum_2; i++)
        if (G->aux[i] == 0) random_draws::Rand();
    CountBrightness(IBkg, CIr, NofR, NofC, G->bhist);
}

void BackgroundModel::Maintain(const KsColorImage& CI, bool updateall) {
    if (updateall) {
        Gather(CI, nullptr, Action::kMaintain);
        return;
    }
    std::uint8_t* const flags = own->flags.data();
    for (int k = 0; k < cnum; k++) flags[k] = G->aux[k] != 0;
    std::uint8_t* const end = flags + cnum;
    for (std::uint8_t* flag = flags; flag != end; flag++) {
        flag = static_cast<std::uint8_t*>(std::memchr(flag, 0, static_cast<std::size_t>(end - flag)));
        if (flag == nullptr) break;
        *flag = random_draws::Rand() * kTwoToMinus31 > kSkipForeground;
    }
    Gather(CI, flags, Action::kMaintainAndForget);
}

void BackgroundModel::UpdateBackground(KsColorImage& CI, bool updateall, int tnew) {
    t = tnew;
    if (BType == SINGLE) {
        UpdateSingle(updateall);
        return;
    }
    if (cnum == 0) return;
    if (updateall) own->TouchSamples();
    // Cell 0 stands for the whole model.
    if (Look(0).nclusters == 0) Gather(CI, nullptr, Action::kCluster);
    for (int i = 0; i < cnum; i++) G->aux[i] = G->conf[i] <= 0.0 || updateall;
    // Deliberate: tested anew, so the frame whose samples were just clustered is gathered once more
    // (Background.FramesAgainstNaiveModel).
    if (Look(0).nclusters > 0) Maintain(CI, updateall);
    G->RememberColors(own->Frame(0));
}
