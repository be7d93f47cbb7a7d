#include "gpulib/App/Compare.h"

void CCompare::SetTranMatrix(std::span<const float, 6> fMatrix)
{
    m_aImpl.GetTransform().SetTranMatrix(fMatrix);
}

void CCompare::SetIntScale(std::span<const float, 6> fScale)
{
    m_aImpl.GetTransform().SetIntScale(fScale);
}

bool CCompare::SetMProj(const float* pfMProj, int iSizeX, int iSizeY)
{
    return m_aImpl.GetTransform().SetMProj(pfMProj, iSizeX, iSizeY);
}

void CCompare::SetAProj(const float* pfAProj, int iSizeX, int iSizeY)
{
    m_aImpl.SetAProj(pfAProj, iSizeX, iSizeY);
}
