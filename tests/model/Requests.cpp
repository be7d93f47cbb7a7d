#include <algorithm>
#include <cmath>
#include <numeric>

#include "tests/model/Generator.h"

namespace
{
constexpr int g_iLargest = 40;  // columns of images, about

constexpr auto Word = [](int iValue) { return static_cast<std::uint32_t>(iValue); };

void Append(const std::vector<float>& rValues, Words& rWords)
{
    for (const float fValue : rValues) rWords.push_back(Bits(fValue));
}
}  // namespace

std::uint32_t CGenerator::mIndex(std::size_t tCount)
{
    return Word(m_r.Int(0, std::max(int(tCount), 1) - 1));
}

/// \param n  of an image, -1: any
Request CGenerator::mMake(std::uint32_t uiType, int n)
{
    if (uiType >= Msg::eTransform && uiType <= Msg::eComparel) return mAlign(uiType);
    switch (uiType)
    {
    case Msg::eByteOrder:
        return {uiType, {m_r.Pick({0x1234ABCDu, 0xCDAB3412u})}};
    case Msg::eLog:  // or another one without a reply
        return {m_r.Pick({Msg::eLog, Msg::eCtfOpt, Msg::eContinuation, Msg::eCmdReply,
                          Msg::eDataReply, 28u, 10001u, 0x10007u, 0xffffffffu}),
                {m_r.Word()},
                Words(std::size_t(m_r.Magnitude(1, 20000)) - 1, m_r.Word())};
    case Msg::eProjGet:
    case Msg::eVolGet:
        return {uiType, {mIndex(std::size_t(m_rModel.GetImages(uiType).iN))}};
    case Msg::eReconStatGet:
        return {uiType, {mIndex(m_rModel.vvfStat.size())}};
    case Msg::eProjSet:
    case Msg::eVolSet:
    case Msg::eMProjSet:
        return mImage(uiType, n);
    case Msg::eProjSize:
        return mProjSize();
    case Msg::eVolSize:
        return mVolSize();
    case Msg::eMProjSize:
        return {uiType,
                {Word(m_r.Magnitude(1, 5 * g_iLargest / 4)), Word(m_r.Magnitude(1, 30)),
                 Word(m_r.Int(1, 3))}};
    case Msg::eSetOp:
        return mSetOp();
    case Msg::eReconOpt:
        return mReconOpt();
    case Msg::eWeightOpt:
        return mWeightOpt();
    case Msg::eSmoothOpt:
        return mSmoothOpt();
    default:
        return {uiType};
    }
}

Request CGenerator::mProjSize()
{
    const int iX = m_r.Chance(3) ? 5 * g_iLargest + m_r.Int(10, 60) : m_r.Magnitude(1, g_iLargest);
    const int iY = m_r.Chance(5) ? m_r.Int(30, 70) : m_r.Int(1, 6), iN = m_r.Int(1, 9);
    Request aRequest = {Msg::eProjSize, {Word(iX), Word(iY), Word(iN)}};
    // No ray through a corner of a box, where its length is a matter of rounding.
    const bool bSpecial = m_r.Chance(10);
    for (int n = 0; n < iN; ++n)
    {
        float fAngle = 0.5f * float(m_r.Int(-127, 128)) + 0.25f;
        if (bSpecial) fAngle = m_r.Pick({-120.f, -80.25f, 0.f, 44.5f, 90.f, 100.5f, 165.25f});
        Append({fAngle, 2.5f}, aRequest.vuiData);
    }
    return aRequest;
}

Request CGenerator::mVolSize()
{
    const Images& rOld = m_rModel.aVolume;
    const int iY = std::max(m_rModel.aStack.iY, 1);
    if (m_r.Chance(1)) return {Msg::eVolSize, {1, Word(iY), 32770}};  // more than 16 bits count
    if (m_r.Chance(10) && rOld.iY == iY && rOld.iN < 1000)            // as many voxels: they stay
        return {Msg::eVolSize, {Word(rOld.iN), Word(iY), Word(rOld.iX)}};
    const int iX = m_r.Magnitude(1, g_iLargest + g_iLargest / 4), iZ = m_r.Int(1, 16);
    return {Msg::eVolSize, {Word(iX), Word(iY), Word(iZ)}};
}

/// Image n, or any; rows of projections may miss columns at their sides, or all of them.
Request CGenerator::mImage(std::uint32_t uiType, int n)
{
    const Images& rImages = m_rModel.GetImages(uiType);
    const bool bStack = uiType == Msg::eProjSet;
    if (n < 0) n = int(mIndex(std::size_t(rImages.iN)));
    std::vector<float> vf = m_r.Reals(rImages.GetPixels(), 0.1f, bStack ? 40.f : 2.f);
    if (bStack && m_r.Chance(20))
        for (auto pRow = vf.begin(); pRow != vf.end(); pRow += rImages.iX)
        {
            const int iLeft = m_r.Chance(10) ? rImages.iX : std::min(m_r.Int(0, 3), rImages.iX);
            const int iRight = std::min(m_r.Int(0, 3), rImages.iX);
            std::fill_n(pRow, iLeft, -1e30f);
            std::fill_n(pRow + rImages.iX - iRight, iRight, -1e30f);
        }
    if (m_r.Chance(8)) vf.resize(std::size_t(m_r.Int(0, int(vf.size()))));
    Request aRequest = {
        uiType, {Word(n)}, Words(bStack ? 2 * std::size_t(rImages.iY) : 0, m_r.Word())};
    Append(vf, aRequest.vuiData);
    return aRequest;
}

Request CGenerator::mSetOp()
{
    const int iProjs = std::max(m_rModel.aStack.iN, 1);
    if (m_r.Chance(15)) return {Msg::eSetOp, {0, 77}};  // keeps the list
    Request aRequest = {Msg::eSetOp, {1, Word(m_r.Int(1, iProjs + 2))}};
    for (std::uint32_t k = 0; k < aRequest.Field(5); ++k)
        aRequest.vuiData.push_back(Word(m_r.Int(0, m_r.Chance(2) ? iProjs : iProjs - 1)));
    return aRequest;
}

Request CGenerator::mReconOpt()
{
    if (m_r.Chance(20)) return {Msg::eReconOpt, {0, 5, 5, 5}, {1, 2}};  // back projection
    const int iIterations = m_r.Pick({1, 2, 3, 5, 8}), iSets = m_r.Int(1, 4);
    const std::uint32_t uiMethod = m_r.Pick({1u, 1u, 2u, 2u, 3u});
    Request aRequest = {Msg::eReconOpt, {uiMethod, Word(iIterations), Word(iSets), 0, 1}};
    for (int s = 0; s < iSets; ++s) aRequest.vuiData.push_back(Word(m_r.Int(1, 6)));
    if (m_r.Chance(5)) aRequest.vuiData.back() = 0xffffffff;
    Append(m_r.Reals(std::size_t(iIterations * iSets), 0.1f, 1.1f), aRequest.vuiData);
    return aRequest;
}

Request CGenerator::mWeightOpt()
{
    if (m_r.Chance(50)) return {Msg::eWeightOpt, {0, 0, 1, 1, 1, 1}};
    const std::uint32_t uiFirst = m_r.Pick({0u, 1u, 2u});
    Request aRequest = {Msg::eWeightOpt, {uiFirst, uiFirst == 0 ? 1u : m_r.Pick({0u, 1u})}};
    const float fHalf = m_r.Chance(20) ? 5000 : m_r.Real(1, 40);
    Append({m_r.Real(-5, 5), m_r.Real(-3, 3), fHalf, m_r.Real(1, 15)}, aRequest.vuiFields);
    return aRequest;
}

Request CGenerator::mSmoothOpt()
{
    const auto uiInterval = Word(m_r.Int(0, 6));
    if (m_r.Chance(10)) return {Msg::eSmoothOpt, {uiInterval, 0, 0, 0}};
    const auto uiX = Word(m_r.Chance(3) ? m_r.Int(255, 256) : m_r.Int(1, 5));  // 255 is the limit
    const Words vuiSize = {uiX, Word(m_r.Int(1, 4)), Word(m_r.Int(1, 4))};
    Request aRequest = {Msg::eSmoothOpt, {uiInterval, uiX, vuiSize[1], vuiSize[2]}};
    std::vector<float> vfFactors[3], vfKernel;
    for (int k = 0; k < 3; ++k) vfFactors[k] = m_r.Reals(vuiSize[k], 0.5f, 1);
    for (const float fZ : vfFactors[2])
        for (const float fY : vfFactors[1])
            for (const float fX : vfFactors[0]) vfKernel.push_back(fX * fY * fZ);
    if (m_r.Chance(50)) vfKernel = m_r.Reals(vfKernel.size(), 0, 1);  // is no product
    const float fSum = std::accumulate(vfKernel.begin(), vfKernel.end(), 1e-3f);
    for (float& rfValue : vfKernel) rfValue /= fSum;
    Append(vfKernel, aRequest.vuiData);
    return aRequest;
}

Request CGenerator::mAlign(std::uint32_t uiType)
{
    const bool bLog = uiType == Msg::eTransforml || uiType == Msg::eComparel;
    std::vector<float> vf = {
        1, 0, 0, 1, 0.5f * float(m_r.Int(-6, 6)), 0.5f * float(m_r.Int(-6, 6))};
    if (m_r.Chance(70))  // no exact positions
        vf = {m_r.Real(0.5f, 1.5f), m_r.Real(-0.3f, 0.3f), m_r.Real(-0.3f, 0.3f),
              m_r.Real(0.5f, 1.5f), m_r.Real(-4, 4),       m_r.Real(-4, 4)};
    vf.insert(vf.end(), {m_r.Real(0.5f, 2), m_r.Real(0, 0.5f), m_r.Real(1, 9)});
    if (m_r.Chance(5)) vf.back() = HUGE_VALF;
    if (bLog) vf.insert(vf.end(), {m_r.Real(0.5f, 1.5f), m_r.Real(0.5f, 1.5f), m_r.Real(3, 9)});
    if (bLog && m_r.Chance(5)) vf[9] = -HUGE_VALF;
    Words vuiWords = {mIndex(std::size_t(m_rModel.aMeasured.iN)),
                      mIndex(std::size_t(m_rModel.aStack.iN))};
    if (uiType >= Msg::eCompare)
        vuiWords.insert(vuiWords.end(), {m_r.Word(), 3});  // all rows count
    Append(vf, vuiWords);
    const auto pData = vuiWords.begin() + std::min<std::ptrdiff_t>(12, std::ssize(vuiWords));
    return {uiType, {vuiWords.begin(), pData}, {pData, vuiWords.end()}};
}
