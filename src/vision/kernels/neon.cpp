// 128-bit vectors of aarch64.
#if defined(__aarch64__)
#define KERNELS_NAME neon
#define KERNELS_STRING "neon"
#define KERNELS_LANES 4
#include "vision/kernels/vector_body.h"
#endif
