#include "fuzz/naiveclusters.h"

#include <cstdlib>

int NaiveCell::distance(const std::array<int, 3>& a, const std::array<int, 3>& b) const {
    if (gray) return a[0] > b[0] ? a[0] - b[0] : b[0] - a[0];
    int sum = 0;
    for (std::size_t c = 0; c < 3; c++) sum += (a[c] - b[c]) * (a[c] - b[c]);
    return sum;
}

int NaiveCell::nearest(const std::array<int, 3>& sample) const {
    int best = 0;
    for (int j = 0; j < count; j++)
        if (distance(sample, clusters[static_cast<std::size_t>(j)].mean) <
            distance(sample, clusters[static_cast<std::size_t>(best)].mean))
            best = j;
    return best;
}

void NaiveCell::setMean(NaiveCluster& c, int over) const {
    for (int ch = 0; ch < channels(); ch++) {
        const auto i = static_cast<std::size_t>(ch);
        c.mean[i] = (c.sum[i] + over / 2) / over;
    }
}

// --- first clustering ---

void NaiveCell::pickCenters() {
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
            for (int ch = 0; ch < channels(); ch++)
                clusters[j].mean[static_cast<std::size_t>(ch)] =
                    samples[static_cast<std::size_t>(picked[j])][static_cast<std::size_t>(ch)];
            for (std::size_t i = 0; i < j; i++) again = again || distance(clusters[i].mean, clusters[j].mean) == 0;
        }
    }
}

// One attempt with `count` clusters. False where a cluster came out empty.
bool NaiveCell::attempt(std::vector<int>& previous) {
    pickCenters();
    for (int numiter = 16; numiter > 0; numiter--) {
        std::vector<int> now;
        farthest_ = 0;
        for (const auto& s : samples) {
            now.push_back(nearest(s));
            const int d = distance(s, clusters[static_cast<std::size_t>(now.back())].mean);
            if (d > farthest_) farthest_ = d;
        }
        if (now == previous) return true;
        previous = now;
        bool empty = false;
        for (int j = 0; j < count; j++) {
            NaiveCluster& c = clusters[static_cast<std::size_t>(j)];
            for (int ch = 0; ch < channels(); ch++) c.sum[static_cast<std::size_t>(ch)] = 0;
            c.support = 0;
            for (std::size_t i = 0; i < samples.size(); i++) {
                if (now[i] != j) continue;
                c.support++;
                for (int ch = 0; ch < channels(); ch++)
                    c.sum[static_cast<std::size_t>(ch)] += samples[i][static_cast<std::size_t>(ch)];
            }
            if (c.support == 0)
                empty = true;
            else
                setMean(c, c.support);
        }
        if (empty) return false;
    }
    return true;
}

void NaiveCell::cluster(int maxdist) {
    const int ns = static_cast<int>(samples.size());
    NaiveCluster all = clusters[0];
    for (int ch = 0; ch < channels(); ch++) all.sum[static_cast<std::size_t>(ch)] = 0;
    for (const auto& s : samples)
        for (int ch = 0; ch < channels(); ch++)
            all.sum[static_cast<std::size_t>(ch)] += s[static_cast<std::size_t>(ch)];
    setMean(all, ns);
    bool close = true;
    for (const auto& s : samples) close = close && distance(s, all.mean) <= maxdist;
    if (close) {
        count = 1;
        clusters[0] = all;
        clusters[0].support = ns;
        samples.clear();
        return;
    }

    std::vector<int> previous(samples.size(), 0);
    count = 2;
    const bool first = attempt(previous);
    const bool two_accepted = first && farthest_ <= maxdist;
    for (bool good = first; !good;) good = attempt(previous);
    if (!two_accepted) {
        count = 3;
        while (!attempt(previous)) {
        }
    }
    samples.clear();
}

// --- maintenance ---

void NaiveCell::remove(int j) {
    clusters[static_cast<std::size_t>(j)].support = clusters[static_cast<std::size_t>(count) - 1].support;
    for (int ch = 0; ch < channels(); ch++) {
        const auto i = static_cast<std::size_t>(ch);
        clusters[static_cast<std::size_t>(j)].mean[i] = clusters[static_cast<std::size_t>(count) - 1].mean[i];
        clusters[static_cast<std::size_t>(j)].sum[i] = clusters[static_cast<std::size_t>(count) - 1].sum[i];
    }
    count--;
}

void NaiveCell::update(int maxdist) {
    for (int round = 0; round < 3; round++) {
        int dmax = 0;
        std::size_t worst = 0;
        for (std::size_t i = 0; i < samples.size(); i++) {
            const int d = distance(samples[i], clusters[static_cast<std::size_t>(nearest(samples[i]))].mean);
            if (d > dmax) {
                dmax = d;
                worst = i;
            }
        }
        if (dmax <= maxdist) break;
        if (count == 6) merge(dmax);
        if (count == 6) break;
        NaiveCluster& fresh = clusters[static_cast<std::size_t>(count++)];
        for (int ch = 0; ch < channels(); ch++) {
            const auto i = static_cast<std::size_t>(ch);
            fresh.mean[i] = fresh.sum[i] = samples[worst][i];
        }
        fresh.support = 1;
        samples[worst] = samples.back();
        samples.pop_back();
    }

    for (int j = 0; j < count; j++) added[static_cast<std::size_t>(j)] = 0;
    std::vector<std::size_t> owner;
    for (const auto& s : samples) owner.push_back(static_cast<std::size_t>(nearest(s)));
    for (std::size_t i = 0; i < samples.size(); i++) {
        NaiveCluster& c = clusters[owner[i]];
        const bool full = c.support >= 512;
        for (int ch = 0; ch < channels(); ch++) {
            const auto x = static_cast<std::size_t>(ch);
            c.sum[x] += samples[i][x] - (full ? c.mean[x] : 0);
        }
        if (!full) c.support++;
        added[owner[i]]++;
    }
    for (int j = 0; j < count; j++) {
        while (j < count && clusters[static_cast<std::size_t>(j)].support == 0) remove(j);
        if (j < count) setMean(clusters[static_cast<std::size_t>(j)], clusters[static_cast<std::size_t>(j)].support);
    }
    samples.clear();
}

void NaiveCell::merge(int maxdist) {
    int into = -1, from = -1, closest = maxdist;
    for (int i = 0; i < count; i++)
        for (int j = i + 1; j < count; j++) {
            const int d =
                distance(clusters[static_cast<std::size_t>(i)].mean, clusters[static_cast<std::size_t>(j)].mean);
            if (d < closest) {
                closest = d;
                into = i;
                from = j;
            }
        }
    if (into < 0) return;
    NaiveCluster& c = clusters[static_cast<std::size_t>(into)];
    const NaiveCluster& other = clusters[static_cast<std::size_t>(from)];
    for (int ch = 0; ch < channels(); ch++)
        c.sum[static_cast<std::size_t>(ch)] += other.sum[static_cast<std::size_t>(ch)];
    c.support += other.support;
    setMean(c, c.support);
    for (int ch = 0; ch < channels() && c.support > 512; ch++)
        c.sum[static_cast<std::size_t>(ch)] += c.mean[static_cast<std::size_t>(ch)] * (512 - c.support);
    if (c.support > 512) c.support = 512;
    remove(from);
}

void NaiveCell::forget() {
    for (int j = 0; j < count;) {
        NaiveCluster& c = clusters[static_cast<std::size_t>(j)];
        const int gained = added[static_cast<std::size_t>(j)];
        if (c.support <= 511 && gained <= 1) {
            const int step = gained - 2;
            c.support += step;
            for (int ch = 0; ch < channels(); ch++)
                c.sum[static_cast<std::size_t>(ch)] += c.mean[static_cast<std::size_t>(ch)] * step;
            if (c.support <= 0) {
                remove(j);
                continue;
            }
        }
        j++;
    }
}
