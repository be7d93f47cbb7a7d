// Forward and back projection.

#include "gpulib/Device/Cuda/CudaBackend.h"
#include "gpulib/Device/Cuda/Launch.h"
#include "gpulib/Device/Cuda/ProjBody.h"

namespace
{
template <class SAMPLER>
__global__ void __launch_bounds__(g_iThreads)
    ForwardKernel(const __grid_constant__ ForwardParams aP)
{
    const int iX = blockIdx.x * g_iThreads + threadIdx.x;
    if (iX < aP.iProjX) ForwardBody<SAMPLER>(iX, blockIdx.y, blockIdx.z, aP);
}

constexpr int g_iBackColumns =
    32;  // a block is nearly square: fewest detector pixels for its reads
constexpr int g_iBackRows = g_iThreads / g_iBackColumns * g_iBackVoxels;

template <class SAMPLER, EUpdate UPDATE>
__global__ void __launch_bounds__(g_iThreads) BackKernel(const __grid_constant__ BackParams aP)
{
    const int iX = blockIdx.x * g_iBackColumns + threadIdx.x % g_iBackColumns;
    const int iZ = blockIdx.y * g_iBackRows + threadIdx.x / g_iBackColumns * g_iBackVoxels;
    if (iX < aP.iVolX && iZ < aP.iVolZ) BackBody<SAMPLER, UPDATE>(iX, iZ, blockIdx.z, aP);
}

template <EUpdate UPDATE>
auto BackKernelFor(bool bExact)
{
    return bExact ? BackKernel<ExactSampler, UPDATE> : BackKernel<FilterSampler, UPDATE>;
}
}  // namespace

bool CCudaBackend::mForwardProject(const ForwardParams& rP)
{
    const dim3 aGrid(BlocksFor(rP.iProjX), rP.iEnd - rP.iFirst, rP.aSums.iLanes);
    return Launch("ForwardProject", mStream(), aGrid, 0,
                  m_bExact ? ForwardKernel<ExactSampler> : ForwardKernel<FilterSampler>, rP);
}

bool CCudaBackend::mBackProject(const BackParams& rP)
{
    const dim3 aGrid((rP.iVolX + g_iBackColumns - 1) / g_iBackColumns,
                     (rP.iVolZ + g_iBackRows - 1) / g_iBackRows, rP.iRows);
    const auto pKernel = rP.eUpdate == EUpdate::eSart ? BackKernelFor<EUpdate::eSart>(m_bExact)
                                                      : BackKernelFor<EUpdate::eEm>(m_bExact);
    return Launch("BackProject", mStream(), aGrid, 0, pKernel, rP);
}
