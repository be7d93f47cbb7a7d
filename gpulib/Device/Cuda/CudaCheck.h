#pragma once

#include <cuda_runtime.h>

/// Whether a call of the CUDA runtime worked; notes why it did not (DeviceFail), as the text given
/// and the runtime's own name of the error.
[[nodiscard, gnu::format(printf, 2, 3)]] bool CudaOk(cudaError_t eCode, const char* pcFormat, ...);
