// 128-bit vectors: every x86-64 processor.
#if defined(__x86_64__)
#define KERNELS_NAME sse2
#define KERNELS_STRING "sse2"
#define KERNELS_LANES 4
#include "vision/kernels/vector_body.h"
#endif
