#include "bench/Literal.h"

#include <algorithm>
#include <cmath>

#include "bench/LiteralFetch.h"

void LiteralForward(const Scene& rScene, int iRow, std::vector<float>& rSums)
{
    const int iWidth = rScene.iX + 2, iHeight = rScene.iZ + 2;
    std::vector<float> vfFramed(std::size_t(iWidth) * iHeight);
    for (int z = 0; z < rScene.iZ; ++z)
        std::copy_n(rScene.SliceLine(z, iRow), rScene.iX,
                    vfFramed.begin() + std::size_t(z + 1) * iWidth + 1);
    rSums.assign(std::size_t(rScene.iX) * rScene.iProjs, 0);
    for (int n = 0; n < rScene.iProjs; ++n)
    {
        const float fCos = rScene.vfCos[n], fSin = rScene.vfSin[n];
        const int iLength = int(rScene.iZ * fCos + rScene.iX * std::abs(fSin) + 0.5f);
        const float fHalf = (iLength + 1) * 0.5f;
        for (int x = 0; x < rScene.iX; ++x)
        {
            const float fU = x - (rScene.iX - 1) * 0.5f;
            const float fMiddleX = (rScene.iX + 1) * 0.5f + fU * fCos;
            const float fMiddleZ = (rScene.iZ + 1) * 0.5f + fU * fSin;
            float fSum = 0;
            for (int i = 0; i < iLength + 2; ++i)
            {
                const float fT = i - fHalf;
                fSum += LiteralFetch(vfFramed.data(), iWidth, iHeight, fMiddleX - fSin * fT,
                                     fMiddleZ + fCos * fT);
            }
            rSums[std::size_t(n) * rScene.iX + x] = fSum;
        }
    }
}

void LiteralBack(const Scene& rScene, int iRow, std::vector<float>& rSlice)
{
    const int iX = rScene.iX;
    rSlice.resize(std::size_t(iX) * rScene.iZ);
    for (int z = 0; z < rScene.iZ; ++z)
        for (int x = 0; x < iX; ++x)
        {
            const float fX = x - (iX - 1) * 0.5f, fZ = z - (rScene.iZ - 1) * 0.5f;
            float fSum = 0, fHits = 0;
            for (int n = 0; n < rScene.iProjs; ++n)
            {
                const float fU = (iX - 1) * 0.5f + (fX * rScene.vfCos[n] + fZ * rScene.vfSin[n]);
                if (fU < 0 || fU > iX - 1) continue;
                const float fBase = std::floor(fU), fRight = fU - fBase;
                const int i0 = std::clamp(int(fBase), 0, iX - 1);
                const int i1 = std::clamp(int(fBase) + 1, 0, iX - 1);
                const float* pfRow = rScene.ProjLine(n, iRow);
                fSum += (1 - fRight) * pfRow[i0] + fRight * pfRow[i1];
                fHits += 1;
            }
            const float fNew =
                rScene.SliceLine(z, iRow)[x] + rScene.fRelax * fSum / (fHits + 1e-6f);
            rSlice[std::size_t(z) * iX + x] = std::max(fNew, 0.0f);
        }
}

void LiteralSmooth(const float* pfVolume, const int* piSize, const float* pfKernel,
                   const int* piKernel, int iFirst, int iEnd, float* pfOut)
{
    const auto At = [=](int x, int y, int z)
    {
        x = std::clamp(x, 0, piSize[0] - 1);
        y = std::clamp(y, 0, piSize[1] - 1);
        z = std::clamp(z, 0, piSize[2] - 1);
        return pfVolume[(std::size_t(z) * piSize[1] + y) * piSize[0] + x];
    };
    for (int k = iFirst; k < iEnd; ++k)
        for (int j = 0; j < piSize[1]; ++j)
            for (int i = 0; i < piSize[0]; ++i)
            {
                float fSum = 0;
                const float* pfWeight = pfKernel;
                for (int c = 0; c < piKernel[2]; ++c)
                    for (int b = 0; b < piKernel[1]; ++b)
                        for (int a = 0; a < piKernel[0]; ++a)
                            fSum +=
                                *pfWeight++ * At(i + a - piKernel[0] / 2, j + b - piKernel[1] / 2,
                                                 k + c - piKernel[2] / 2);
                *pfOut++ = fSum;
            }
}
