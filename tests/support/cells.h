// A background cell against the plain second model of fuzz/naiveclusters.h.
#pragma once

#include <algorithm>
#include <string>

#include "fuzz/naiveclusters.h"
#include "vision/background/backgroundmodel.h"

// First difference between the two, empty where they agree.
inline std::string cellDifference(const KsBackgroundCell& real, const NaiveCell& naive) {
    const auto text = [](const char* what, int j, int a, int b) {
        return std::string(what) + " " + std::to_string(j) + ": " + std::to_string(a) + ", expected " +
               std::to_string(b);
    };
    if (real.nclusters != naive.count) return text("nclusters", 0, real.nclusters, naive.count);
    if (real.nsamples != static_cast<int>(naive.samples.size()))
        return text("nsamples", 0, real.nsamples, static_cast<int>(naive.samples.size()));
    for (int j = 0; j < std::max(1, naive.count); j++) {
        const NaiveCluster& c = naive.clusters[static_cast<std::size_t>(j)];
        if (real.support[j] != c.support) return text("support", j, real.support[j], c.support);
        const int added = naive.added[static_cast<std::size_t>(j)];
        if (real.added[j] != added) return text("added", j, real.added[j], added);
        const int mean[] = {real.clusters[j].R, real.clusters[j].G, real.clusters[j].B};
        const int sum[] = {real.clustersum[j].R, real.clustersum[j].G, real.clustersum[j].B};
        for (std::size_t k = 0; k < (naive.gray ? 1u : 3u); k++) {
            if (mean[k] != c.mean[k]) return text("mean", j, mean[k], c.mean[k]);
            if (sum[k] != c.sum[k]) return text("sum", j, sum[k], c.sum[k]);
        }
    }
    return "";
}
