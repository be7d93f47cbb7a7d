#include "gpulib/App/Weights/CalcWeights.h"

#include <array>
#include <cstddef>
#include <utility>

#include "gpulib/App/Images/Textures.h"
#include "gpulib/App/Weights/CalcWeightBase.h"

void CCalcWeights::SetVolSize(int iVolX, int iVolZ)
{
    m_iVolSize[0] = iVolX;
    m_iVolSize[1] = iVolZ;
}

void CCalcWeights::SetProjs(int iProjX, int iProjs, std::span<const float> fAngles)
{
    m_iPrjSize[0] = iProjX;
    m_iPrjSize[1] = iProjs;
    m_fAngles = fAngles;
}

void CCalcWeights::SetWeightBox(const float* pfOrig, const float* pfDim)
{
    m_pfOrig = pfOrig;
    m_pfDim = pfDim;
}

bool CCalcWeights::DoIt()
{
    std::vector<float> vfPre = mCalcPreWeight();
    std::vector<float> vfPrj = mCalcPrjWeight();
    for (std::size_t k = 0; k < vfPre.size(); ++k)
    {
        vfPre[k] = vfPrj[k] / vfPre[k];
        vfPrj[k] = 1 / vfPrj[k];
    }
    CTextures& rTextures = *m_pTextures;
    return rTextures.m_aPreweightTex.Create(m_iPrjSize[0], m_iPrjSize[1]) &&
           rTextures.m_aPreweightTex.SetData(vfPre) &&
           rTextures.m_aProjweightTex.Create(m_iPrjSize[0], m_iPrjSize[1]) &&
           rTextures.m_aProjweightTex.SetData(vfPrj);
}

std::vector<float> CCalcWeights::mCalcPreWeight() const
{
    std::array<float, 2> afOrig{}, afSize{};
    if (m_pfOrig && m_pfDim)
    {
        afOrig = {m_pfOrig[0], m_pfOrig[1]};
        afSize = {2 * m_pfDim[0], 2 * m_pfDim[1]};
    }
    CCalcWeightBase aBase;
    aBase.SetBox(afOrig, afSize);
    aBase.SetProjs(m_iPrjSize[0], m_iPrjSize[1], m_fAngles);
    const bool bSlab = m_pfDim && m_pfDim[0] / static_cast<float>(m_iPrjSize[0]) > 10.0f;
    if (bSlab)
        aBase.CalcSlab();
    else
        aBase.Calculate();
    return std::move(aBase.GetWeight());
}

std::vector<float> CCalcWeights::mCalcPrjWeight() const
{
    CCalcWeightBase aBase;
    aBase.SetBox({0, 0}, {static_cast<float>(m_iVolSize[0]), static_cast<float>(m_iVolSize[1])});
    aBase.SetProjs(m_iPrjSize[0], m_iPrjSize[1], m_fAngles);
    aBase.Calculate();
    return std::move(aBase.GetWeight());
}
