// 256-bit vectors with the 16-bit dot product (AVX-VNNI).
#if defined(__x86_64__)
#define KERNELS_NAME avxvnni
#define KERNELS_STRING "avxvnni"
#define KERNELS_LANES 8
#include "vision/kernels/vector_body.h"
#endif
