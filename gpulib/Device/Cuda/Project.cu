// Forward and back projection.

#include "gpulib/Device/Cuda/CudaBackend.h"
#include "gpulib/Device/Cuda/Launch.h"
#include "gpulib/Device/Cuda/ProjBody.h"

namespace
{
constexpr int g_iRays = g_iThreads / g_iQuads;  // or columns of voxels, of a block

__global__ void __launch_bounds__(g_iThreads)
    ForwardKernel(const __grid_constant__ ForwardParams aP)
{
    const int iX = blockIdx.x * g_iRays + threadIdx.x / g_iQuads;
    if (iX < aP.iProjX) ForwardBody(iX, blockIdx.y, RowQuad::Of(blockIdx.z, threadIdx.x), aP);
}

/// Three blocks to a multiprocessor: without that bound registers would leave room for two.
template <EUpdate UPDATE>
__global__ void __launch_bounds__(g_iThreads, 3) BackKernel(const __grid_constant__ BackParams aP)
{
    const int iX = blockIdx.x * g_iRays + threadIdx.x / g_iQuads, iZ = blockIdx.y * g_iBackVoxels;
    if (iX < aP.iVolX) BackBody<UPDATE>(iX, iZ, RowQuad::Of(blockIdx.z, threadIdx.x), aP);
}
}  // namespace

bool CCudaBackend::mForwardProject(const ForwardParams& rP)
{
    const dim3 aGrid(BlocksFor(rP.iProjX, g_iRays), rP.iEnd - rP.iFirst, CountGroups(rP.aSums));
    return mLaunch("ForwardProject", aGrid, 0, ForwardKernel, rP);
}

bool CCudaBackend::mBackProject(const BackParams& rP)
{
    const dim3 aGrid(BlocksFor(rP.iVolX, g_iRays), BlocksFor(rP.iVolZ, g_iBackVoxels),
                     BlocksFor(rP.iRows, g_iGroupLanes));
    const auto pKernel =
        rP.eUpdate == EUpdate::eSart ? BackKernel<EUpdate::eSart> : BackKernel<EUpdate::eEm>;
    return mLaunch("BackProject", aGrid, 0, pKernel, rP);
}
