#pragma once

// Macros of the arithmetic that every backend shares: such a function is compiled by g++ for each
// instruction set of the host backend and by nvcc for the GPU, and must stay inline in all of them.
#if defined(__CUDACC__)
#define DEVICE_FN __host__ __device__ __forceinline__
#else
#define DEVICE_FN [[gnu::always_inline]] static inline
#endif
