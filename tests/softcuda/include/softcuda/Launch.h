#pragma once

#include <functional>
#include <type_traits>
#include <utility>

#include "softcuda/Types.h"

namespace SoftCuda
{
/// Queues a launch; Kernel runs the kernel for the CUDA thread that threadIdx and blockIdx name.
cudaError_t Launch(const cudaLaunchConfig_t* pConfig, std::function<void()> Kernel);
}  // namespace SoftCuda

template <typename... ExpTypes, typename... ActTypes>
cudaError_t cudaLaunchKernelEx(const cudaLaunchConfig_t* config, void (*kernel)(ExpTypes...),
                               ActTypes&&... args)
{
    static_assert((std::is_trivially_copyable_v<ExpTypes> && ...), "a launch copies bytes");
    static_assert((sizeof(ExpTypes) + ... + 0) <= 4096, "parameters of a kernel");
    return [&](ExpTypes... aCoerced) {
        return SoftCuda::Launch(config, [kernel, aCoerced...] { kernel(aCoerced...); });
    }(std::forward<ActTypes>(args)...);
}
