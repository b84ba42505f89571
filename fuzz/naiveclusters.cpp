#include "fuzz/naiveclusters.h"

#include <cstdlib>

int NaiveCell::Distance(const std::array<int, 3>& a, const std::array<int, 3>& b) const {
    if (gray) return a[0] > b[0] ? a[0] - b[0] : b[0] - a[0];
    int sum = 0;
    for (std::size_t c = 0; c < 3; c++) sum += (a[c] - b[c]) * (a[c] - b[c]);
    return sum;
}

int NaiveCell::Nearest(const std::array<int, 3>& sample) const {
    int best = 0;
    for (int j = 0; j < count; j++)
        if (Distance(sample, clusters[static_cast<std::size_t>(j)].mean) <
            Distance(sample, clusters[static_cast<std::size_t>(best)].mean))
            best = j;
    return best;
}

void NaiveCell::SetMean(NaiveCluster& c, int over) const {
    for (int ch = 0; ch < Channels(); ch++) {
        const auto i = static_cast<std::size_t>(ch);
        c.mean[i] = (c.sum[i] + over / 2) / over;
    }
}

// --- first clustering ---

void NaiveCell::PickCenters() {
    const auto n = static_cast<std::size_t>(count);
    for (bool again = true; again;) {
        std::vector<long> picked;
        while (picked.size() < n) {
            const long draw = ::random() % static_cast<long>(samples.size());
            bool repeated = false;
            for (const long p : picked) repeated = repeated || p == draw;
            if (!repeated) picked.push_back(draw);
        }
        again = false;
        for (std::size_t j = 0; j < n; j++) {
            for (int ch = 0; ch < Channels(); ch++)
                clusters[j].mean[static_cast<std::size_t>(ch)] =
                    samples[static_cast<std::size_t>(picked[j])][static_cast<std::size_t>(ch)];
            for (std::size_t i = 0; i < j; i++) again = again || Distance(clusters[i].mean, clusters[j].mean) == 0;
        }
    }
}

// One attempt with `count` clusters. False where a cluster came out empty.
bool NaiveCell::Attempt(std::vector<int>& previous) {
    PickCenters();
    for (int numiter = 16; numiter > 0; numiter--) {
        std::vector<int> now;
        farthest = 0;
        for (const auto& s : samples) {
            now.push_back(Nearest(s));
            const int d = Distance(s, clusters[static_cast<std::size_t>(now.back())].mean);
            if (d > farthest) farthest = d;
        }
        if (now == previous) return true;
        previous = now;
        bool empty = false;
        for (int j = 0; j < count; j++) {
            NaiveCluster& c = clusters[static_cast<std::size_t>(j)];
            for (int ch = 0; ch < Channels(); ch++) c.sum[static_cast<std::size_t>(ch)] = 0;
            c.support = 0;
            for (std::size_t i = 0; i < samples.size(); i++) {
                if (now[i] != j) continue;
                c.support++;
                for (int ch = 0; ch < Channels(); ch++)
                    c.sum[static_cast<std::size_t>(ch)] += samples[i][static_cast<std::size_t>(ch)];
            }
            if (c.support == 0)
                empty = true;
            else
                SetMean(c, c.support);
        }
        if (empty) return false;
    }
    return true;
}

void NaiveCell::Cluster(int maxdist) {
    const int ns = static_cast<int>(samples.size());
    NaiveCluster all = clusters[0];
    for (int ch = 0; ch < Channels(); ch++) all.sum[static_cast<std::size_t>(ch)] = 0;
    for (const auto& s : samples)
        for (int ch = 0; ch < Channels(); ch++)
            all.sum[static_cast<std::size_t>(ch)] += s[static_cast<std::size_t>(ch)];
    SetMean(all, ns);
    bool close = true;
    for (const auto& s : samples) close = close && Distance(s, all.mean) <= maxdist;
    if (close) {
        count = 1;
        clusters[0] = all;
        clusters[0].support = ns;
        samples.clear();
        return;
    }

    std::vector<int> previous(samples.size(), 0);
    count = 2;
    const bool first = Attempt(previous);
    const bool two_accepted = first && farthest <= maxdist;
    for (bool good = first; !good;) good = Attempt(previous);
    if (!two_accepted) {
        count = 3;
        while (!Attempt(previous)) {
        }
    }
    samples.clear();
}

// --- maintenance ---

void NaiveCell::Remove(int j) {
    clusters[static_cast<std::size_t>(j)].support = clusters[static_cast<std::size_t>(count) - 1].support;
    for (int ch = 0; ch < Channels(); ch++) {
        const auto i = static_cast<std::size_t>(ch);
        clusters[static_cast<std::size_t>(j)].mean[i] = clusters[static_cast<std::size_t>(count) - 1].mean[i];
        clusters[static_cast<std::size_t>(j)].sum[i] = clusters[static_cast<std::size_t>(count) - 1].sum[i];
    }
    count--;
}

void NaiveCell::Update(int maxdist) {
    for (int round = 0; round < 3; round++) {
        int dmax = 0;
        std::size_t worst = 0;
        for (std::size_t i = 0; i < samples.size(); i++) {
            const int d = Distance(samples[i], clusters[static_cast<std::size_t>(Nearest(samples[i]))].mean);
            if (d > dmax) {
                dmax = d;
                worst = i;
            }
        }
        if (dmax <= maxdist) break;
        if (count == 6) Merge(dmax);
        if (count == 6) break;
        NaiveCluster& fresh = clusters[static_cast<std::size_t>(count++)];
        for (int ch = 0; ch < Channels(); ch++) {
            const auto i = static_cast<std::size_t>(ch);
            fresh.mean[i] = fresh.sum[i] = samples[worst][i];
        }
        fresh.support = 1;
        samples[worst] = samples.back();
        samples.pop_back();
    }

    for (int j = 0; j < count; j++) added[static_cast<std::size_t>(j)] = 0;
    std::vector<std::size_t> owner;
    for (const auto& s : samples) owner.push_back(static_cast<std::size_t>(Nearest(s)));
    for (std::size_t i = 0; i < samples.size(); i++) {
        NaiveCluster& c = clusters[owner[i]];
        const bool full = c.support >= 512;
        for (int ch = 0; ch < Channels(); ch++) {
            const auto x = static_cast<std::size_t>(ch);
            c.sum[x] += samples[i][x] - (full ? c.mean[x] : 0);
        }
        if (!full) c.support++;
        added[owner[i]]++;
    }
    for (int j = 0; j < count; j++) {
        while (j < count && clusters[static_cast<std::size_t>(j)].support == 0) Remove(j);
        if (j < count) SetMean(clusters[static_cast<std::size_t>(j)], clusters[static_cast<std::size_t>(j)].support);
    }
    samples.clear();
}

void NaiveCell::Merge(int maxdist) {
    int into = -1, from = -1, closest = maxdist;
    for (int i = 0; i < count; i++)
        for (int j = i + 1; j < count; j++) {
            const int d =
                Distance(clusters[static_cast<std::size_t>(i)].mean, clusters[static_cast<std::size_t>(j)].mean);
            if (d < closest) {
                closest = d;
                into = i;
                from = j;
            }
        }
    if (into < 0) return;
    NaiveCluster& c = clusters[static_cast<std::size_t>(into)];
    const NaiveCluster& other = clusters[static_cast<std::size_t>(from)];
    for (int ch = 0; ch < Channels(); ch++)
        c.sum[static_cast<std::size_t>(ch)] += other.sum[static_cast<std::size_t>(ch)];
    c.support += other.support;
    SetMean(c, c.support);
    for (int ch = 0; ch < Channels() && c.support > 512; ch++)
        c.sum[static_cast<std::size_t>(ch)] += c.mean[static_cast<std::size_t>(ch)] * (512 - c.support);
    if (c.support > 512) c.support = 512;
    Remove(from);
}

void NaiveCell::Forget() {
    for (int j = 0; j < count;) {
        NaiveCluster& c = clusters[static_cast<std::size_t>(j)];
        const int gained = added[static_cast<std::size_t>(j)];
        if (c.support <= 511 && gained <= 1) {
            const int step = gained - 2;
            c.support += step;
            for (int ch = 0; ch < Channels(); ch++)
                c.sum[static_cast<std::size_t>(ch)] += c.mean[static_cast<std::size_t>(ch)] * step;
            if (c.support <= 0) {
                Remove(j);
                continue;
            }
        }
        j++;
    }
}
