// Colour and grey clustering from one body: the channel policies of the cluster templates.
#pragma once

#include <cstdlib>

#include "valuetypes.h"

// All three channels; the distance is the squared Euclidean one.
struct ColorChannels {
    template <class P>
    static int Distance(const P& a, const ColorValue& b) {
        const int r = a.R - b.R, g = a.G - b.G, bl = a.B - b.B;
        return r * r + g * g + bl * bl;
    }
    template <class P>
    static void Copy(ColorValue& to, const P& from) {
        to = from;
    }
    template <class P>
    static void Add(ColorValue& to, const P& v) {
        to.R += v.R;
        to.G += v.G;
        to.B += v.B;
    }
    // to += v * factor
    static void AddTimes(ColorValue& to, const ColorValue& v, int factor) {
        to.R += v.R * factor;
        to.G += v.G * factor;
        to.B += v.B * factor;
    }
    static void SetMean(ColorValue& to, const ColorValue& sum, int m) {
        to = {RoundedMean(sum.R, m), RoundedMean(sum.G, m), RoundedMean(sum.B, m)};
    }
    static void Clear(ColorValue& v) { v = {0, 0, 0}; }
};

// The red member alone; the others are not written. The distance is the absolute difference.
struct GrayChannel {
    template <class P>
    static int Distance(const P& a, const ColorValue& b) {
        return std::abs(a.R - b.R);
    }
    template <class P>
    static void Copy(ColorValue& to, const P& from) {
        to.R = from.R;
    }
    template <class P>
    static void Add(ColorValue& to, const P& v) {
        to.R += v.R;
    }
    static void AddTimes(ColorValue& to, const ColorValue& v, int factor) { to.R += v.R * factor; }
    static void SetMean(ColorValue& to, const ColorValue& sum, int m) { to.R = RoundedMean(sum.R, m); }
    static void Clear(ColorValue& v) { v.R = 0; }
};

// Index of the cluster nearest to p among the first n (cluster 0 if n < 1), the lower one on a tie; d is its distance.
template <class Channels, class P>
int NearestCluster(const ColorValue* clusters, int n, const P& p, int& d) {
    int best = 0;
    d = Channels::Distance(p, clusters[0]);
    for (int j = 1; j < n; j++) {
        const int dj = Channels::Distance(p, clusters[j]);
        if (dj < d) {
            d = dj;
            best = j;
        }
    }
    return best;
}
