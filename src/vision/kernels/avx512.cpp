// 512-bit vectors with the 16-bit dot product (AVX512F, BW, VL, VNNI).
#if defined(__x86_64__)
#define KERNELS_NAME avx512
#define KERNELS_STRING "avx512"
#define KERNELS_LANES 16
#include "vision/kernels/vector_body.h"
#endif
