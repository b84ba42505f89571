// Choice of the kernels at run time.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "vision/kernels/kernels.h"

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace kernels {

extern const Table sse2, avx2, avxvnni, avx512, neon;

namespace {

#if defined(__x86_64__)
// Clang 14 does not know it by name. Its registers are those of AVX2, which the system has to support.
bool HasAvxVnni() {
    constexpr unsigned kLeaf = 7, kSubleaf = 1, kBit = 1U << 4;
    unsigned a = 0, b = 0, c = 0, d = 0;
    return __get_cpuid_count(kLeaf, kSubleaf, &a, &b, &c, &d) != 0 && (a & kBit) != 0;
}
#endif

struct List {
    const Table* at[6] = {&scalar};
    int n = 1;
    List() {
#if defined(__x86_64__)
        __builtin_cpu_init();
        at[n++] = &sse2;
        const bool bmi2 = __builtin_cpu_supports("bmi2") != 0;
        const bool wide = bmi2 && __builtin_cpu_supports("avx2");
        if (wide) at[n++] = &avx2;
        if (wide && HasAvxVnni()) at[n++] = &avxvnni;
        if (bmi2 && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
            __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vnni"))
            at[n++] = &avx512;
#elif defined(__aarch64__)
        at[n++] = &neon;
#endif
    }
};

const List& Runnable() {
    static const List list;
    return list;
}

const Table* Choose() {
    const List& list = Runnable();
    const Table* best = list.at[list.n - 1];
    const char* wanted = std::getenv("FLEIFEISA_KERNELS");
    if (wanted == nullptr || *wanted == '\0') return best;
    for (int i = 0; i < list.n; i++)
        if (std::strcmp(wanted, list.at[i]->name) == 0) return list.at[i];
    std::fprintf(stderr, "FLEIFEISA_KERNELS=%s cannot be used here; using %s.\n", wanted, best->name);
    return best;
}

}  // namespace

const Table& Active() {
    static const Table* const chosen = Choose();
    return *chosen;
}

const Table* const* Available() {
    return Runnable().at;
}

}  // namespace kernels
