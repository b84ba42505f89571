// 256-bit vectors.
#if defined(__x86_64__)
#define KERNELS_NAME avx2
#define KERNELS_STRING "avx2"
#define KERNELS_LANES 8
#include "vision/kernels/vector_body.h"
#endif
