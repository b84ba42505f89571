// A second, plain model of the background's clusters, for comparison with the real one.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "kshistograms.h"

struct NaiveCluster {
    int mean[3], sum[3], support, added;
};

// Works on `channels` channels (3: squared distance, 1: absolute difference). Draws from the process-wide random(), as
// the real one does. Slot 0 stays readable where no cluster is in use.
class NaiveCell {
 public:
    explicit NaiveCell(int channel_count) : channels(channel_count) {}

    int channels;
    int used = 0;
    NaiveCluster slot[6] = {};
    std::vector<std::vector<int>> samples;

    int Distance(const int* a, const int* b, int over) const {
        if (over == 1) return std::abs(a[0] - b[0]);
        int d = 0;
        for (int k = 0; k < over; k++) d += (a[k] - b[k]) * (a[k] - b[k]);
        return d;
    }

    // First clustering. squared: the three-channel distance also for a cell of one channel.
    void Cluster(int maxdist, bool squared) {
        const int over = squared ? 3 : 1;
        const auto n = samples.size();
        for (auto& s : samples) s.resize(3, 0);
        Recentre(0, std::vector<std::size_t>(Indices(n)), over);
        int worst = 0;
        for (const auto& s : samples) worst = std::max(worst, Distance(s.data(), slot[0].mean, over));
        used = 1;
        std::vector<int> before(n, 0);
        for (bool first = true; worst > maxdist;) {
            const int count = used + 1;
            const Outcome outcome = Attempt(count, before, maxdist, over);
            if (outcome != kEmpty) used = count;
            if (outcome != kEmpty && (count == 3 || (first && outcome == kExplained))) break;
            first = false;
        }
        samples.clear();
    }

    // Maintenance.
    void Update(int maxdist) {
        std::vector<int> nearest;
        int worst_at = 0, worst = Assign(nearest, worst_at);
        for (int round = 0; round < 3 && worst > maxdist; round++) {
            if (used == 6) Merge(worst);
            if (used == 6) break;
            NaiveCluster& fresh = slot[used++];
            for (int k = 0; k < channels; k++)
                fresh.mean[k] = fresh.sum[k] = samples[std::size_t(worst_at)][std::size_t(k)];
            fresh.support = 1;
            samples[std::size_t(worst_at)] = samples.back();
            samples.pop_back();
            worst = Assign(nearest, worst_at);
        }
        for (int j = 0; j < used; j++) slot[j].added = 0;
        for (std::size_t i = 0; i < samples.size(); i++) {
            NaiveCluster& to = slot[nearest[i]];
            const bool full = to.support >= 512;
            for (int k = 0; k < channels; k++) to.sum[k] += samples[i][std::size_t(k)] - (full ? to.mean[k] : 0);
            to.support += !full;
            to.added++;
        }
        for (int j = 0; j < used; j++) {
            while (j < used && slot[j].support == 0) Remove(j);
            for (int k = 0; k < channels && j < used; k++)
                slot[j].mean[k] = RoundedMean(slot[j].sum[k], slot[j].support);
        }
        samples.clear();
    }

    void Merge(int bound) {
        int a = -1, b = -1;
        for (int i = 0; i < used; i++) {
            for (int j = i + 1; j < used; j++) {
                const int d = Distance(slot[i].mean, slot[j].mean, channels);
                if (d >= bound) continue;
                bound = d;
                a = i;
                b = j;
            }
        }
        if (a < 0) return;
        const int s = slot[a].support + slot[b].support;
        for (int k = 0; k < channels; k++) {
            slot[a].sum[k] += slot[b].sum[k];
            slot[a].mean[k] = RoundedMean(slot[a].sum[k], s);
            if (s > 512) slot[a].sum[k] += slot[a].mean[k] * (512 - s);
        }
        slot[a].support = std::min(s, 512);
        Remove(b);
    }

    void Forget() {
        for (int j = 0; j < used;) {
            NaiveCluster& c = slot[j];
            if (c.support <= 511 && c.added <= 1) {
                const int step = c.added - 2;
                c.support += step;
                for (int k = 0; k < channels; k++) c.sum[k] += c.mean[k] * step;
                if (c.support <= 0) {
                    Remove(j);
                    continue;
                }
            }
            j++;
        }
    }

 private:
    enum Outcome { kEmpty, kSpread, kExplained };

    static std::vector<std::size_t> Indices(std::size_t n) {
        std::vector<std::size_t> all(n);
        for (std::size_t i = 0; i < n; i++) all[i] = i;
        return all;
    }

    // `added` stays behind with the slot.
    void Remove(int j) {
        const int kept = slot[j].added;
        slot[j] = slot[--used];
        slot[j].added = kept;
    }

    void Recentre(int j, const std::vector<std::size_t>& members, int over) {
        NaiveCluster& c = slot[j];
        c.support = static_cast<int>(members.size());
        for (int k = 0; k < over; k++) c.sum[k] = 0;
        for (const std::size_t i : members)
            for (int k = 0; k < over; k++) c.sum[k] += samples[i][std::size_t(k)];
        for (int k = 0; k < over && !members.empty(); k++) c.mean[k] = RoundedMean(c.sum[k], c.support);
    }

    Outcome Attempt(int count, std::vector<int>& before, int maxdist, int over) {
        std::set<std::vector<int>> colours;
        do {
            colours.clear();
            std::vector<long> chosen;
            while (static_cast<int>(chosen.size()) < count) {
                const long pick = ::random() % static_cast<long>(samples.size());
                bool again = false;
                for (const long c : chosen) again = again || c == pick;
                if (!again) chosen.push_back(pick);
            }
            for (int j = 0; j < count; j++) {
                const auto& s = samples[std::size_t(chosen[std::size_t(j)])];
                for (int k = 0; k < over; k++) slot[j].mean[k] = s[std::size_t(k)];
                colours.insert(std::vector<int>(s.begin(), s.begin() + over));
            }
        } while (static_cast<int>(colours.size()) < count);
        int worst = 0;
        for (int pass = 0; pass < 16; pass++) {
            std::vector<int> now;
            worst = 0;
            for (const auto& s : samples) {
                int best = 0;
                for (int j = 1; j < count; j++)
                    if (Distance(s.data(), slot[j].mean, over) < Distance(s.data(), slot[best].mean, over)) best = j;
                now.push_back(best);
                worst = std::max(worst, Distance(s.data(), slot[best].mean, over));
            }
            if (now == before) break;
            before = now;
            bool empty = false;
            for (int j = 0; j < count; j++) {
                std::vector<std::size_t> members;
                for (std::size_t i = 0; i < now.size(); i++)
                    if (now[i] == j) members.push_back(i);
                Recentre(j, members, over);
                empty = empty || members.empty();
            }
            if (empty) return kEmpty;
        }
        return worst <= maxdist ? kExplained : kSpread;
    }

    // Nearest cluster of every sample; returns the largest of these distances and the first sample that has it.
    int Assign(std::vector<int>& nearest, int& worst_at) const {
        nearest.clear();
        int worst = 0;
        worst_at = 0;
        for (std::size_t i = 0; i < samples.size(); i++) {
            int best = 0;
            for (int j = 1; j < used; j++)
                if (Distance(samples[i].data(), slot[j].mean, channels) <
                    Distance(samples[i].data(), slot[best].mean, channels))
                    best = j;
            nearest.push_back(best);
            const int d = Distance(samples[i].data(), slot[best].mean, channels);
            if (d > worst) {
                worst = d;
                worst_at = static_cast<int>(i);
            }
        }
        return worst;
    }
};

// First difference between the two, empty where they agree.
inline std::string CellDifference(const KsBackgroundCell& real, const NaiveCell& naive) {
    const auto text = [](const char* what, int j, int a, int b) {
        return std::string(what) + " " + std::to_string(j) + ": " + std::to_string(a) + ", expected " +
               std::to_string(b);
    };
    if (real.nclusters != naive.used) return text("nclusters", 0, real.nclusters, naive.used);
    if (real.nsamples != static_cast<int>(naive.samples.size()))
        return text("nsamples", 0, real.nsamples, static_cast<int>(naive.samples.size()));
    for (int j = 0; j < std::max(1, naive.used); j++) {
        const NaiveCluster& c = naive.slot[j];
        if (real.support[j] != c.support) return text("support", j, real.support[j], c.support);
        if (real.added[j] != c.added) return text("added", j, real.added[j], c.added);
        const int mean[] = {real.clusters[j].R, real.clusters[j].G, real.clusters[j].B};
        const int sum[] = {real.clustersum[j].R, real.clustersum[j].G, real.clustersum[j].B};
        for (int k = 0; k < naive.channels; k++) {
            if (mean[k] != c.mean[k]) return text("mean", j, mean[k], c.mean[k]);
            if (sum[k] != c.sum[k]) return text("sum", j, sum[k], c.sum[k]);
        }
    }
    return "";
}
