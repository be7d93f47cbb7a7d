#include "gpulib/App/Weights/CalcWeightBase.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace
{
constexpr double g_dDegree = 0.017453292519943295;
}

void CCalcWeightBase::SetBox(const std::array<float, 2>& rOrig, const std::array<float, 2>& rSize)
{
    m_afOrig = rOrig;
    m_afSize = rSize;
}

void CCalcWeightBase::SetProjs(int iProjX, int iProjs, std::span<const float> fAngles)
{
    m_iProjX = iProjX;
    m_iProjs = iProjs;
    m_fAngles = fAngles;
    m_vfWeight.assign(std::size_t(iProjX) * iProjs, 0.0f);
}

void CCalcWeightBase::Calculate()
{
    float* pfWeight = m_vfWeight.data();
    for (int n = 0; n < m_iProjs; ++n)
    {
        m_dCos = std::sin((90.0 - m_fAngles[n]) * g_dDegree);
        m_dSin = std::sin(m_fAngles[n] * g_dDegree);
        mTransformVertices();
        for (int i = 0; i < m_iProjX; ++i) *pfWeight++ = mCalcLength(-0.5f * (m_iProjX - 1) + i);
    }
}

void CCalcWeightBase::CalcSlab()
{
    for (int n = 0; n < m_iProjs; ++n)
    {
        const double dCos = std::cos(m_fAngles[n] * g_dDegree);
        const float fLength = static_cast<float>(m_afSize[1] / (1e-20 + dCos));
        std::fill_n(m_vfWeight.begin() + std::ptrdiff_t(n) * m_iProjX, m_iProjX, fLength);
    }
}

CCalcWeightBase::Point CCalcWeightBase::mTransform(double dX, double dZ) const
{
    return {dZ * m_dSin + dX * m_dCos, dZ * m_dCos - dX * m_dSin};
}

void CCalcWeightBase::mTransformVertices()
{
    const double dX = m_afOrig[0], dZ = m_afOrig[1];
    const double dHalfX = 0.5 * m_afSize[0], dHalfZ = 0.5 * m_afSize[1];
    m_aPoints = {mTransform(dX + dHalfX, dZ + dHalfZ), mTransform(dX - dHalfX, dZ + dHalfZ),
                 mTransform(dX - dHalfX, dZ - dHalfZ), mTransform(dX + dHalfX, dZ - dHalfZ)};
}

float CCalcWeightBase::mCalcLength(float fU)
{
    m_iHits = 0;
    for (int i = 0; i < 4; ++i) mHitLine(m_aPoints[i], m_aPoints[(i + 1) % 4], fU);
    if (m_iHits < 2) return 1.0f;
    return std::max(static_cast<float>(std::fabs(m_dPointY[0] - m_dPointY[1])), 1.0f);
}

/// Notes the depth at which the ray crosses the edge PQ; only the first two crossings count.
void CCalcWeightBase::mHitLine(const Point& rP, const Point& rQ, double dU)
{
    if (m_iHits == 2) return;
    const double dMiddle = 0.5 * (rP[0] + rQ[0]);
    const double dHalf = std::fabs((rP[0] - rQ[0]) * 0.5);
    if (dHalf < 0.001) return;  // parallel to the ray
    if (dU < dMiddle - dHalf || dU > dMiddle + dHalf) return;
    m_dPointY[m_iHits++] = (dU - rP[0]) * ((rQ[1] - rP[1]) / (rQ[0] - rP[0])) + rP[1];
}
