#include "server/Recon/GaussianKernel.h"

#include <cmath>

namespace
{
float Term(int iDistance, float fStd)
{
    return static_cast<float>(iDistance * iDistance) / (fStd * fStd);
}
}  // namespace

void CGaussianKernel::SetStd(float fX, float fY, float fZ)
{
    m_fStd[0] = fX;
    m_fStd[1] = fY;
    m_fStd[2] = fZ;
}

void CGaussianKernel::Build()
{
    const int iX = m_aKernel.GetSizeX(), iY = m_aKernel.GetSizeY(), iZ = m_aKernel.GetSizeZ();
    float* pfVoxel = m_aKernel.GetData();
    if (pfVoxel == nullptr) return;

    double dSum = 0.0;
    for (int z = 0; z < iZ; ++z)
        for (int y = 0; y < iY; ++y)
            for (int x = 0; x < iX; ++x)
            {
                const float fS = (Term(x - iX / 2, m_fStd[0]) + Term(y - iY / 2, m_fStd[1])) +
                                 Term(z - iZ / 2, m_fStd[2]);
                *pfVoxel = static_cast<float>(std::exp(-0.5 * fS));
                dSum += *pfVoxel++;
            }
    const float fScale = static_cast<float>(1.0 / dSum);
    pfVoxel = m_aKernel.GetData();
    for (std::size_t i = 0; i < m_aKernel.GetVoxels(); ++i) pfVoxel[i] *= fScale;
}
