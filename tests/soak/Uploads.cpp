#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "tests/soak/Session.h"
#include "tests/wire/Messages.h"

namespace
{
constexpr float g_fNaN = std::numeric_limits<float>::quiet_NaN();

std::uint32_t Word(int iValue)
{
    return static_cast<std::uint32_t>(iValue);
}

Request Size(std::uint32_t uiType, const Images& rImages)
{
    return {uiType, {Word(rImages.iX), Word(rImages.iY), Word(rImages.iN)}, {}};
}

RawClient::Words ToWords(std::span<const float> fValues)
{
    return RawClient::ToWords({fValues.begin(), fValues.end()});
}
}  // namespace

bool CSession::mMakeAll()
{
    return mStack(false) && mVolume(false) && mSelect(false) && mMethod(false) && mBox(false) &&
           mSmooth(false);
}

bool CSession::mOption(bool bSpoilt)
{
    switch (m_aRandom.Int(0, 5))
    {
    case 0:
        return mStack(bSpoilt);
    case 1:
        return mVolume(bSpoilt);
    case 2:
        return mSelect(bSpoilt);
    case 3:
        return mBox(bSpoilt);
    case 4:
        return mSmooth(bSpoilt);
    default:
        return mMethod(bSpoilt);
    }
}

/// An image whose rows may miss columns at their sides, or all of them.
std::vector<float> CSession::mPixels(int iX, int iY, float fScale)
{
    std::vector<float> vf = m_aRandom.Reals(std::size_t(iX) * iY, 0.1f * fScale, 2 * fScale);
    if (!m_aRandom.Chance(0.2f)) return vf;
    for (auto pRow = vf.begin(); pRow != vf.end(); pRow += iX)
    {
        const int iLeft = std::min(m_aRandom.Chance(0.1f) ? iX : m_aRandom.Int(0, 3), iX);
        const int iRight = std::min(m_aRandom.Int(0, 3), iX);
        std::fill_n(pRow, iLeft, -1e30f);
        std::fill_n(pRow + iX - iRight, iRight, -1e30f);
    }
    return vf;
}

bool CSession::mStack(bool bSpoilt)
{
    const bool bWide = m_aRandom.Chance(0.03f), bLong = m_aRandom.Chance(0.05f);
    Images aStack;
    aStack.iX = bWide ? m_aRandom.Int(250, 300) : m_aRandom.Magnitude(1, 48);
    aStack.iY = bWide ? 1 : bLong ? m_aRandom.Int(30, 70) : m_aRandom.Int(1, 6);
    aStack.iN = m_aRandom.Int(1, bLong ? 4 : 9);
    aStack.vf.resize(aStack.GetPixels() * std::size_t(aStack.iN));
    std::vector<float> vfPairs, vfAngles;
    // No ray through a corner of a box, where its length is a matter of rounding.
    const bool bSpecial = m_aRandom.Chance(0.1f);
    for (int n = 0; n < aStack.iN; ++n)
    {
        vfAngles.push_back(0.5f * float(m_aRandom.Int(-140, 140)) + 0.25f);
        if (bSpecial)
            vfAngles[n] = m_aRandom.Pick({-120.f, -89.5f, 0.f, 44.5f, 90.f, 100.5f, 179.5f});
        if (bSpoilt && n == 0) vfAngles[n] = m_aRandom.Pick({g_fNaN, HUGE_VALF});
        vfPairs.insert(vfPairs.end(), {vfAngles[n], m_aRandom.Real(0, 5)});
    }
    Request aSize = Size(Msg::eProjSize, aStack);
    aSize.vuiData = RawClient::ToWords(vfPairs);
    if (!mServe(aSize)) return false;

    std::vector<Request> vRequests;
    for (int n = 0; n < aStack.iN; ++n)
    {
        if (m_aRandom.Chance(0.05f)) continue;  // stays 0
        const std::vector<float> vf = mPixels(aStack.iX, aStack.iY, 20);
        const auto tSent =
            std::size_t(m_aRandom.Chance(0.1f) ? m_aRandom.Int(0, int(vf.size())) : int(vf.size()));
        Request aSet = {Msg::eProjSet, {Word(n)}, {}};
        for (int k = 0; k < 2 * aStack.iY; ++k) aSet.vuiData.push_back(m_aRandom.Word());
        const Words vuiPixels = ToWords(std::span(vf).first(tSent));
        aSet.vuiData.insert(aSet.vuiData.end(), vuiPixels.begin(), vuiPixels.end());
        std::copy_n(vf.begin(), tSent, aStack.Nth(n).begin());
        vRequests.push_back(std::move(aSet));
    }
    if (!mServeAll(vRequests)) return false;
    m_aModel.vuiList.resize(std::size_t(aStack.iN));
    std::iota(m_aModel.vuiList.begin(), m_aModel.vuiList.end(), 0U);
    m_aModel.aStack = std::move(aStack);
    m_aModel.vfAngles = std::move(vfAngles);
    return true;
}

bool CSession::mVolume(bool bSpoilt)
{
    Images aVolume;
    const bool bReshape = m_aRandom.Chance(0.1f) && !m_aModel.aVolume.IsEmpty() &&
                          m_aModel.aStack.iY == m_aModel.aVolume.iY;
    aVolume.iX = bReshape ? m_aModel.aVolume.iN : m_aRandom.Magnitude(1, 60);
    aVolume.iY = std::max(m_aModel.aStack.iY, 1) + (bSpoilt ? 1 : 0);
    aVolume.iN = bReshape ? m_aModel.aVolume.iX : m_aRandom.Int(1, 16);
    const std::size_t tVoxels = aVolume.GetPixels() * std::size_t(aVolume.iN);
    if (tVoxels == m_aModel.aVolume.vf.size()) aVolume.vf = m_aModel.aVolume.vf;  // they stay
    aVolume.vf.resize(tVoxels);
    if (!mServe(Size(Msg::eVolSize, aVolume))) return false;

    std::vector<Request> vRequests;
    const float fUploaded = m_aRandom.Pick({0.f, 0.8f, 1.f, 1.f});
    for (int z = 0; z < aVolume.iN; ++z)
    {
        if (!m_aRandom.Chance(fUploaded)) continue;
        const std::vector<float> vf = m_aRandom.Reals(aVolume.GetPixels(), 0.1f, 2);
        std::ranges::copy(vf, aVolume.Nth(z).begin());
        vRequests.push_back({Msg::eVolSet, {Word(z)}, RawClient::ToWords(vf)});
    }
    if (!mServeAll(vRequests)) return false;
    m_aModel.aVolume = std::move(aVolume);
    return true;
}

bool CSession::mMeasured()
{
    Images aMeasured;
    aMeasured.iX = m_aRandom.Magnitude(1, 60);
    aMeasured.iY = m_aRandom.Magnitude(1, 30);
    aMeasured.iN = m_aRandom.Int(1, 3);
    std::vector<Request> vRequests = {Size(Msg::eMProjSize, aMeasured)};
    for (int n = 0; n < aMeasured.iN; ++n)
    {
        const std::vector<float> vf = m_aRandom.Reals(aMeasured.GetPixels(), 0.1f, 2);
        aMeasured.vf.insert(aMeasured.vf.end(), vf.begin(), vf.end());
        vRequests.push_back({Msg::eMProjSet, {Word(n)}, RawClient::ToWords(vf)});
    }
    if (!mServeAll(vRequests)) return false;
    m_aModel.aMeasured = std::move(aMeasured);
    return true;
}

bool CSession::mSelect(bool bSpoilt)
{
    if (!bSpoilt && m_aRandom.Chance(0.4f)) return mServe({Msg::eSetOp, {0, 77}, {}});  // keeps
    const int iProjs = std::max(m_aModel.aStack.iN, 1);
    Words vuiList(std::size_t(m_aRandom.Int(1, iProjs + 2)));
    for (std::uint32_t& rIndex : vuiList) rIndex = Word(m_aRandom.Int(0, iProjs - 1));
    if (bSpoilt) vuiList.back() = m_aRandom.Pick({Word(iProjs), 0xffffffffu});
    if (bSpoilt && m_aRandom.Chance(0.3f)) vuiList.clear();
    if (!mServe({Msg::eSetOp, {1, Word(int(vuiList.size()))}, vuiList})) return false;
    m_aModel.vuiList = std::move(vuiList);
    return true;
}

bool CSession::mMethod(bool bSpoilt)
{
    Model& m = m_aModel;
    if (!bSpoilt && m_aRandom.Chance(0.2f))
    {
        if (!mServe({Msg::eReconOpt, {0}, {}})) return false;
        m.eMethod = EMethod::eBackProj;
        return true;
    }
    const std::uint32_t uiMethod = m_aRandom.Pick({1u, 2u});
    std::uint32_t uiIterations = Word(m_aRandom.Int(1, 5)), uiSets = Word(m_aRandom.Int(1, 4));
    const int iFault = bSpoilt ? m_aRandom.Int(0, 2) : -1;
    if (iFault == 0) uiIterations = 0;
    if (iFault == 1) uiSets = 0;
    Words vuiSizes(uiSets);
    for (std::uint32_t& rSize : vuiSizes) rSize = Word(m_aRandom.Int(1, 6));
    std::vector<float> vfRelax = m_aRandom.Reals(uiIterations * uiSets, 0.1f, 1.1f);
    if (iFault == 2) vfRelax.back() = g_fNaN;
    Request aRequest = {Msg::eReconOpt, {uiMethod, uiIterations, uiSets, 0, 1}, vuiSizes};
    const Words vuiRelax = RawClient::ToWords(vfRelax);
    aRequest.vuiData.insert(aRequest.vuiData.end(), vuiRelax.begin(), vuiRelax.end());
    if (!mServe(aRequest)) return false;
    m.eMethod = uiMethod == 1 ? EMethod::eSart : EMethod::eEm;
    m.uiIterations = uiIterations;
    m.uiSets = uiSets;
    m.vuiSetSize = std::move(vuiSizes);
    m.vfRelax = std::move(vfRelax);
    return true;
}

bool CSession::mBox(bool bSpoilt)
{
    std::optional<OracleBox> aBox;
    if (bSpoilt || m_aRandom.Chance(0.5f))
        aBox = {{m_aRandom.Real(-5, 5), m_aRandom.Real(-3, 3)},
                {m_aRandom.Chance(0.2f) ? 5000.f : m_aRandom.Real(1, 40), m_aRandom.Real(1, 15)}};
    if (bSpoilt) aBox->afHalf[0] = m_aRandom.Pick({g_fNaN, 3e38f});
    return mSetBox(aBox);
}

bool CSession::mSetBox(const std::optional<OracleBox>& rBox)
{
    Request aRequest = {Msg::eWeightOpt, {0, 0}, {}};
    if (rBox)
        aRequest.vuiFields = {1,
                              Word(m_aRandom.Int(0, 1)),
                              Bits(rBox->afCentre[0]),
                              Bits(rBox->afCentre[1]),
                              Bits(rBox->afHalf[0]),
                              Bits(rBox->afHalf[1])};
    if (!mServe(aRequest)) return false;
    m_aModel.aBox = rBox;
    return true;
}

bool CSession::mSmooth(bool bSpoilt)
{
    if (!bSpoilt && m_aRandom.Chance(0.5f) && m_aModel.uiInterval == 0) return true;
    const std::array<int, 3> aiKernel = {m_aRandom.Int(1, 5), m_aRandom.Int(1, 4),
                                         m_aRandom.Int(1, 4)};
    const std::uint32_t uiInterval = Word(m_aRandom.Int(bSpoilt ? 1 : 0, 6));
    std::vector<float> vfFactors[3], vfKernel;
    for (int k = 0; k < 3; ++k) vfFactors[k] = m_aRandom.Reals(std::size_t(aiKernel[k]), 0.5f, 1);
    const bool bProduct = m_aRandom.Chance(0.5f);
    for (const float fZ : vfFactors[2])
        for (const float fY : vfFactors[1])
            for (const float fX : vfFactors[0])
                vfKernel.push_back(bProduct ? fX * fY * fZ : m_aRandom.Real(0, 1));
    const float fSum = std::accumulate(vfKernel.begin(), vfKernel.end(), 1e-3f);
    for (float& rfValue : vfKernel) rfValue /= fSum;
    if (bSpoilt) vfKernel.back() = g_fNaN;
    if (!mServe({Msg::eSmoothOpt,
                 {uiInterval, Word(aiKernel[0]), Word(aiKernel[1]), Word(aiKernel[2])},
                 RawClient::ToWords(vfKernel)}))
        return false;
    m_aModel.uiInterval = uiInterval;
    m_aModel.aiKernel = aiKernel;
    m_aModel.vfKernel = std::move(vfKernel);
    return true;
}
