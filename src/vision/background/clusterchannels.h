// Colour and grey clustering from one body: the channel policies of the cluster templates.
#pragma once

#include <cstdint>
#include <cstdlib>

#include "vision/valuetypes.h"

// A channel value in the type that Q's channels have.
template <class Q>
constexpr auto Narrow(int v) {
    return static_cast<decltype(Q::R)>(v);
}

// All three channels; the distance is the squared Euclidean one.
struct ColorChannels {
    // Distance over the given channel differences.
    static int Length(std::int16_t r, std::int16_t g, std::int16_t b) { return r * r + g * g + b * b; }
    template <class P, class Q>
    static int Distance(const P& a, const Q& b) {
        const int r = a.R - b.R, g = a.G - b.G, bl = a.B - b.B;
        return r * r + g * g + bl * bl;
    }
    template <class Q, class P>
    static void Copy(Q& to, const P& from) {
        to.R = Narrow<Q>(from.R);
        to.G = Narrow<Q>(from.G);
        to.B = Narrow<Q>(from.B);
    }
    template <class P>
    static void Add(ColorValue& to, const P& v) {
        to.R += v.R;
        to.G += v.G;
        to.B += v.B;
    }
    // to += v * factor
    static void AddTimes(ColorValue& to, const ColorMean& v, int factor) {
        to.R += v.R * factor;
        to.G += v.G * factor;
        to.B += v.B * factor;
    }
    template <class Q>
    static void SetMean(Q& to, const ColorValue& sum, int m) {
        Copy(to, ColorValue{RoundedMean(sum.R, m), RoundedMean(sum.G, m), RoundedMean(sum.B, m)});
    }
    static void Clear(ColorValue& v) { v = {0, 0, 0}; }
};

// The red member alone; the others are not written. The distance is the absolute difference.
struct GrayChannel {
    static int Length(std::int16_t r, std::int16_t, std::int16_t) { return std::abs(r); }
    template <class P, class Q>
    static int Distance(const P& a, const Q& b) {
        return std::abs(a.R - b.R);
    }
    template <class Q, class P>
    static void Copy(Q& to, const P& from) {
        to.R = Narrow<Q>(from.R);
    }
    template <class P>
    static void Add(ColorValue& to, const P& v) {
        to.R += v.R;
    }
    static void AddTimes(ColorValue& to, const ColorMean& v, int factor) { to.R += v.R * factor; }
    template <class Q>
    static void SetMean(Q& to, const ColorValue& sum, int m) {
        to.R = Narrow<Q>(RoundedMean(sum.R, m));
    }
    static void Clear(ColorValue& v) { v.R = 0; }
};

// Index of the cluster nearest to p among the first n (cluster 0 if n < 1), the lower one on a tie; d is its distance.
template <class Channels, class P>
int NearestCluster(const ColorMean* clusters, int n, const P& p, int& d) {
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
