// The samples of a cell against its clusters, in vectors; part of vector_body.h.
//
// The cluster of a sample is the one with the largest key 8 (2 p.c - |c|^2) + (7 - j): the index j in the low bits lets
// the lower cluster win ties, and the distance comes back as |p|^2 - (key >> 3). With means within kLowest .. kHighest
// weights of 16 c fit 16 bits and distances times 64 fit 32. Before the first merge a sum lies at
// most 256 above support x mean and, as negative means are rounded towards zero, at most 768 below. Merging adds sums
// and supports, so a merged mean stays within -1024 .. 767. Above the ceiling of support the remainder doubles, but
// then the divisor exceeds 512 and it moves the mean by at most 3. All this holds up to 2047 either way.

constexpr int kGroups = kFrames * kPixels / N;
constexpr int kSamples = kFrames * kPixels;

alignas(64) constexpr std::int32_t kLane[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};

inline V8 Slots() {
    return LoadAs<V8>(kLane);
}
// Members of a ClusterSet or CandidateList, with the first bytes of the next one in the upper lanes.
inline V8 Widen(const std::int16_t* v) {
#if defined(__AVX2__)
    return (V8)_mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(v)));
#else
    return __builtin_convertvector(LoadAs<H8>(v), V8);
#endif
}
inline V8 Widen(const std::uint8_t* v) {
#if defined(__AVX2__)
    std::int64_t bytes = LoadAs<std::int64_t>(v);
    asm("" : "+r"(bytes));  // GCC 12 breaks down where it merges this load into a masked instruction
    return (V8)_mm256_cvtepu8_epi32(_mm_cvtsi64_si128(bytes));
#else
    return __builtin_convertvector(LoadAs<B8>(v), V8);
#endif
}
// Stores to the six slots and nothing behind them.
inline void StoreSlots(std::int32_t* to, V8 v) {
#if defined(__AVX512VL__)
    _mm256_mask_storeu_epi32(to, 0x3f, (__m256i)v);
#else
    Store(to, __builtin_shufflevector(v, v, 0, 1, 2, 3));
    Store(to + 4, __builtin_shufflevector(v, v, 4, 5));
#endif
}
inline H8 NarrowSlots(V8 v) {  // the values fit
#if defined(__AVX512VL__)
    return (H8)_mm256_cvtepi32_epi16((__m256i)v);
#elif defined(__AVX2__)
    const __m256i packed = _mm256_packs_epi32((__m256i)v, (__m256i)v);
    return (H8)_mm256_castsi256_si128(_mm256_permute4x64_epi64(packed, 0x08));
#else
    return __builtin_convertvector(v, H8);
#endif
}
inline void StoreSlots(std::int16_t* to, V8 v) {
    const H8 h = NarrowSlots(v);
#if defined(__AVX512VL__)
    _mm_mask_storeu_epi16(to, 0x3f, (__m128i)h);
#else
    Store(to, __builtin_shufflevector(h, h, 0, 1, 2, 3));
    Store(to + 4, __builtin_shufflevector(h, h, 4, 5));
#endif
}
inline void StoreSlots(std::uint8_t* to, V8 v) {  // the values fit
#if defined(__AVX512VL__)
    const auto bytes = _mm_cvtsi128_si64(_mm256_maskz_cvtepi32_epi8(0xff, (__m256i)v));
#elif defined(__SSE2__)
    const auto bytes = _mm_cvtsi128_si64(_mm_packus_epi16((__m128i)NarrowSlots(v), (__m128i)NarrowSlots(v)));
#else
    const B8 bytes = __builtin_convertvector(v, B8);
#endif
    std::memcpy(to, &bytes, kClusters);
}
// All lanes zero.
inline bool None(V8 v) {
#if defined(__AVX__)
    return _mm256_testz_si256((__m256i)v, (__m256i)v) != 0;
#else
    typedef std::int64_t L4 __attribute__((vector_size(32)));
    const L4 l = (L4)v;
    return (l[0] | l[1] | l[2] | l[3]) == 0;
#endif
}
inline V8 Min(V8 a, V8 b) {
    return a < b ? a : b;
}
// The three channels of all means, 16 bits each; a gray cell has one.
struct Means {
    V8 r, g, b;
    V8 RedGreen() const { return (r & 0xffff) | (g << 16); }
#if defined(__SSE2__)
    V8 Squares() const {
        return MultiplyPairs(RedGreen(), RedGreen()) + Times(b, b);
    }
#else
    V8 Squares() const {
        return r * r + g * g + b * b;
    }
#endif
};
template <bool gray>
inline Means MeansOf(const ClusterSet& set) {
    return {Widen(set.mean[0]), gray ? V8{} : Widen(set.mean[1]), gray ? V8{} : Widen(set.mean[2])};
}

#if KERNELS_LANES != 8
// to[i] += v[i] where a[i] == b[i].
inline void AddWhereEqual(V& to, V a, V b, V v) {
#if KERNELS_LANES == 16
    to =
        (V)_mm512_mask_add_epi32((__m512i)to, _mm512_cmpeq_epi32_mask((__m512i)a, (__m512i)b), (__m512i)to, (__m512i)v);
#else
    to += (V)(a == b) & v;
#endif
}
#endif

// Per cluster, the sums over the samples that are nearest to it: 64 x 255 fits a half.
struct GivenSums {
    V8 red_blue, green_count;
    V8 Red() const { return red_blue & 0xffff; }
    V8 Green() const { return green_count & 0xffff; }
    V8 Blue() const { return red_blue >> 16; }
    V8 Count() const { return green_count >> 16; }
};

// Gray samples have no green and blue.
template <bool gray>
class Samples {
 public:
    Samples(const PixelBlock* first, std::size_t stride)
        : blocks{first, first + stride, first + 2 * stride, first + 3 * stride} {
        const V channels = V{} + (gray ? 0xff : 0xff00ff);
        const V green = V{} + (gray ? 0 : 0xff);
        for (int i = 0; i < kGroups; i++) {
            const V p = Load(blocks[i / kChunks]->p + N * (i % kChunks));
            rb[i] = p & channels;
            g1[i] = ((p >> 8) & green) | 0x10000;  // a one to count with
            pp[i] = MultiplyAdd(MultiplyAdd(V{} - 1, rb[i], rb[i]), g1[i], g1[i]);
        }
    }

    // Vector by vector: compilers make a slow block copy of it otherwise.
    Samples(const Samples& other) { *this = other; }
    Samples& operator=(const Samples& other) {
        if (this == &other) return *this;
        for (int i = 0; i < kFrames; i++) blocks[i] = other.blocks[i];
        for (int i = 0; i < kGroups; i++) {
            rb[i] = other.rb[i];
            g1[i] = other.g1[i];
            pp[i] = other.pp[i];
            key[i] = other.key[i];
        }
        Store(wrb, LoadAs<V8>(other.wrb));
        Store(wg, LoadAs<V8>(other.wg));
        Store(constant, LoadAs<V8>(other.constant));
        return *this;
    }

    struct Channels {
        int v[3];
    };
    Channels At(int lane) const {
        const std::uint32_t p = blocks[lane / kPixels]->p[lane % kPixels];
        const int r = p & 255, g = p >> 8 & 255, b = p >> 16 & 255;
        return {{r, gray ? 0 : g, gray ? 0 : b}};
    }

    // The first n clusters; the others never win.
    void Weigh(const Means& m, int n) {
        Store(wrb, ((16 * m.r) & 0xffff) | (m.b << 20));
        Store(wg, (16 * m.g) & 0xffff);
        Store(constant, Slots() < n ? 7 - Slots() - 8 * m.Squares() : V8{} + INT_MIN / 2);
        KeepInMemory();
    }
    void Weigh(int j, const Channels& c) {
        const auto [r, g, b] = c.v;
        wrb[j] = 16 * r | static_cast<std::int32_t>(static_cast<std::uint32_t>(b) << 20);
        wg[j] = 16 * g;
        constant[j] = 7 - j - 8 * (r * r + g * g + b * b);
    }

    // Keeps compilers from taking weights out of registers again, which costs more than a broadcast from memory.
    void KeepInMemory() { asm("" : "+m"(wrb), "+m"(wg), "+m"(constant)); }

    // The keys of clusters first .. n - 1, beside those before them.
    void Compare(int first, int n) {
        if (first == 0)
            for (int i = 0; i < kGroups; i++) key[i] = V{} + INT_MIN;
        for (int j = first; j < n; j++) {
            const V weight_rb = V{} + wrb[j], weight_g = V{} + wg[j], start = V{} + constant[j];
            for (int i = 0; i < kGroups; i++)
                key[i] = Max(key[i], MultiplyAdd(MultiplyAdd(start, rb[i], weight_rb), g1[i], weight_g));
        }
    }
    V Distances(int i) const { return pp[i] - (key[i] >> 3); }

    // After Compare, for clusters 0 .. kCount - 1.
    template <int kCount>
    GivenSums SumClusters() const {
        V srb[kClusters] = {}, sg1[kClusters] = {};
        GivenSums sums;
        if constexpr (kCount == 1) {  // it is given all
            for (int i = 0; i < kGroups; i++) {
                srb[0] += rb[i];
                sg1[0] += g1[i];
            }
            SumLanes(srb, sg1, sums.red_blue, sums.green_count);
            return sums;
        }
#if KERNELS_LANES == 8
        // As bytes, two groups at a time: a dot product with the 0 and -1 of a comparison adds neighbours up, each in
        // the half in which it has always been. A half holds eight of them at most.
        typedef std::int8_t B __attribute__((vector_size(32)));
        const auto both = [](V a, V b) { return a | (b << 8); };
        const auto take = [](V& from, V bytes, V which) {
            from = (V)((W)from - (W)_mm256_maddubs_epi16((__m256i)bytes, (__m256i)which));
        };
        for (int i = 0; i < kGroups; i += 2) {
            const V bytes_rb = both(rb[i], rb[i + 1]), bytes_g1 = both(g1[i], g1[i + 1]);
            const V place = both(key[i] & 7, key[i + 1] & 7), places = place | (place << 16);
            for (int j = 0; j < kCount; j++) {
                const V which = (V)((B)places == static_cast<std::int8_t>(7 - j));
                take(srb[j], bytes_rb, which);
                take(sg1[j], bytes_g1, which);
            }
        }
#else
        for (int j = 0; j < kCount; j++)
            for (int i = 0; i < kGroups; i++) {
                AddWhereEqual(srb[j], key[i] & 7, V{} + (7 - j), rb[i]);
                AddWhereEqual(sg1[j], key[i] & 7, V{} + (7 - j), g1[i]);
            }
#endif
        SumLanes(srb, sg1, sums.red_blue, sums.green_count);
        return sums;
    }

    const PixelBlock* blocks[kFrames];
    V rb[kGroups];   // red and blue in the halves of a lane
    V g1[kGroups];   // green, and a one to count with
    V pp[kGroups];   // |p|^2
    V key[kGroups];  // of the nearest cluster, after Compare
    // Of the clusters: 16 R and 16 B, 16 G, and the rest of the key.
    alignas(32) std::int32_t wrb[8], wg[8], constant[8];
};

// Rounded means, (s + m / 2) / m with s >= 0 or the sum of a settled cluster. The quotient in single precision
// truncates exactly: with |s| below 2^19 its rounding error is below 2^19 / m / 2^24 = 1 / (32 m), and a quotient that
// is no integer lies at least 1 / m from one.
inline V8 RoundedMeans(V8 s, V8 m, F8 divisor) {
    return __builtin_convertvector(__builtin_convertvector(s + (m >> 1), F8) / divisor, V8);
}

#if KERNELS_LANES == 8
// For each set of slots, these slots in order.
constexpr struct PackedSlots {
    std::uint8_t place[1 << kClusters][8] = {};
    constexpr PackedSlots() {
        for (int set = 0; set < 1 << kClusters; set++)
            for (int slot = 0, n = 0; slot < kClusters; slot++)
                if ((set >> slot & 1) != 0) place[set][n++] = static_cast<std::uint8_t>(slot);
    }
} kPacked;
#endif

// The candidate list of a cell with n clusters.
inline void List(int n, V8 support, const Means& m, CandidateList& list) {
    const V8 used = Slots() < n;
    const auto out = [](V8 v) { return (v < kLowest) | (v > kHighest); };
    if (!None(used & (out(m.r) | out(m.g) | out(m.b) | (support < 1)))) {
        list.n = -1;
        return;
    }
    const V8 qualifies = used & (support > kMinSupport), start = 31 - 32 * m.Squares();
    const V8 red_blue = ((64 * m.r) & 0xffff) | (m.b << 22), green = 64 * m.g;
#if KERNELS_LANES >= 8
    const auto mask = static_cast<unsigned>(_mm256_movemask_ps((__m256)qualifies));
#if KERNELS_LANES == 16
    const auto pack = [&](V8 v) { return (V8)_mm256_maskz_compress_epi32(static_cast<__mmask8>(mask), (__m256i)v); };
#else
    const __m256i from = _mm256_cvtepu8_epi32(_mm_cvtsi64_si128(LoadAs<std::int64_t>(kPacked.place[mask])));
    const auto pack = [&](V8 v) { return (V8)_mm256_permutevar8x32_epi32((__m256i)v, from); };
#endif
    char* const to = reinterpret_cast<char*>(&list);  // each store runs into the next member, which follows
    Store(to + offsetof(CandidateList, constant), pack(start) - Slots());
    Store(to + offsetof(CandidateList, rb), pack(red_blue));
    Store(to + offsetof(CandidateList, g), NarrowSlots(pack(green)));
    list.n = __builtin_popcount(mask);
#else
    int count = 0;
    for (int j = 0; j < kClusters; j++) {
        list.constant[count] = start[j] - count;
        list.rb[count] = red_blue[j];
        list.g[count] = static_cast<std::int16_t>(green[j]);
        count -= qualifies[j];
    }
    list.n = count;
#endif
}
