// For the innermost loops over pixels: compiled for several processors of x86-64, of which the dynamic linker chooses
// one when the program starts. Integers give the same bytes in each; floating point does too, since -ffp-contract=off
// holds for all of them.
#pragma once

// Such a function is plain loops that a compiler makes vectors of; what it calls must be inlined into it, or it stays
// what the oldest processor can do.
#if defined(__x86_64__) && defined(__gnu_linux__) && defined(__GNUC__) && !defined(__clang__)
#define FLEIFEISA_CLONES __attribute__((target_clones("default", "arch=x86-64-v2", "arch=x86-64-v3", "arch=x86-64-v4")))
#define FLEIFEISA_INTO_CLONES inline __attribute__((always_inline))
#else
#define FLEIFEISA_CLONES
#define FLEIFEISA_INTO_CLONES inline
#endif
