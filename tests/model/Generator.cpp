#include "tests/model/Generator.h"

#include <algorithm>
#include <cmath>

namespace
{
constexpr double g_dMostWork = 5e6;  // samples of a job

/// How often a type comes by itself; 100 together.
constexpr std::pair<std::uint32_t, int> g_aWeights[] = {
    {Msg::eReconstruct, 20}, {Msg::eReproject, 7}, {Msg::eTransform, 3},  {Msg::eTransforml, 3},
    {Msg::eCompare, 3},      {Msg::eComparel, 3},  {Msg::eProjGet, 4},    {Msg::eVolGet, 4},
    {Msg::eReconStatGet, 4}, {Msg::eCompReply, 3}, {Msg::eServerProp, 2}, {Msg::eByteOrder, 2},
    {Msg::eLog, 7},          {Msg::eProjSize, 3},  {Msg::eProjSet, 3},    {Msg::eVolSize, 3},
    {Msg::eVolSet, 3},       {Msg::eMProjSize, 2}, {Msg::eMProjSet, 2},   {Msg::eSetOp, 4},
    {Msg::eReconOpt, 5},     {Msg::eWeightOpt, 3}, {Msg::eSmoothOpt, 7}};
}  // namespace

Request CGenerator::Next()
{
    if (m_vPlan.empty()) mPlan();
    while (const std::uint32_t uiRemedy = mFindRemedy(m_vPlan.front().uiType))
        m_vPlan.push_front({uiRemedy});
    const Planned aNext = m_vPlan.front();
    m_vPlan.pop_front();
    Request aRequest = mMake(aNext.uiType, aNext.iIndex);
    if (m_r.Chance(aNext.iIndex >= 0 ? 4 : 16))
    {
        Request aSpoilt = aRequest;
        mSpoil(aSpoilt);
        if (mIsModest(aSpoilt)) return aSpoilt;
    }
    mPlanImages(aRequest);
    return aRequest;
}

void CGenerator::Ask()
{
    m_vPlan.push_front(
        {m_r.Pick({Msg::eProjGet, Msg::eVolGet, Msg::eReconStatGet, Msg::eCompReply})});
}

void CGenerator::mPlan()
{
    m_iRemedies = 0;
    int iLeft = m_r.Int(0, 99);
    const std::pair<std::uint32_t, int>* pNext = g_aWeights;
    while ((iLeft -= pNext->second) >= 0) ++pNext;
    m_vPlan.push_back({pNext->first});
    if (pNext->first == Msg::eReconstruct && m_rModel.eMethod == EMethod::eBackProj &&
        m_r.Chance(70))
        m_vPlan.push_front({Msg::eReconOpt});
}

/// After the size of a stack or a volume, its last images, or some.
void CGenerator::mPlanImages(const Request& rSize)
{
    if (rSize.uiType != Msg::eProjSize && rSize.uiType != Msg::eVolSize &&
        rSize.uiType != Msg::eMProjSize)
        return;
    const int iPercent = m_r.Pick({100, 100, 100, 70, rSize.uiType == Msg::eVolSize ? 0 : 100});
    for (std::uint32_t n = rSize.Field(6), uiEnd = std::max(n, 20U) - 20; n-- > uiEnd;)
        if (iPercent == 100 || m_r.Chance(iPercent)) m_vPlan.push_front({rSize.uiType - 1, int(n)});
}

/// The message that a job needs first, 0 when it may go as it is. One that nothing can make small
/// becomes a question.
std::uint32_t CGenerator::mFindRemedy(std::uint32_t& rType)
{
    const Model& m = m_rModel;
    if (!IsJob(rType)) return 0;
    std::uint32_t uiRemedy = m.FindObstacle(rType, true);
    const bool bLarge = m.GetWork() > g_dMostWork || std::max(m.aVolume.iN, m.aStack.iN) > 300;
    const bool bHeavy = rType < Msg::eTransform && bLarge && m.FindObstacle(rType, false) == 0;
    if (bHeavy)
        uiRemedy =
            m_r.Pick({Msg::eProjSize, Msg::eVolSize, Msg::eSmoothOpt, Msg::eSetOp, Msg::eReconOpt});
    const bool bGivesUp = ++m_iRemedies > 9;
    if (bGivesUp && bHeavy) rType = Msg::eServerProp;
    return bGivesUp || (!bHeavy && m_r.Chance(10)) ? 0 : uiRemedy;
}

std::uint32_t CGenerator::mStrangeWord(std::uint32_t uiWord)
{
    const Model& m = m_rModel;
    switch (m_r.Int(0, 3))
    {
    case 0:
        return Bits(m_r.Pick({NAN, HUGE_VALF, -HUGE_VALF, 3e38f, 1e38f, -1e30f, -1.0000001e15f,
                              -9.999999e14f, 1e-40f}));
    case 1:
        return m_r.Pick({0u, 1u, 255u, 256u, 0x8000u, 0x10000u, 0x20001u, 0x7fffffffu, 0x80000000u,
                         0xfffffffeu, 0xffffffffu});
    default:
        return m_r.Pick({uiWord + 1, uiWord + 2, uiWord - 1, std::uint32_t(m.aStack.iN),
                         std::uint32_t(m.aVolume.iN), std::uint32_t(m.vvfStat.size())});
    }
}

void CGenerator::mSpoil(Request& r)
{
    const int iWhat = m_r.Int(0, 9), iWords = int(r.vuiData.size());
    Words& rWords = iWhat < 5 ? r.vuiFields : r.vuiData;
    if (iWhat < 7 && !rWords.empty())
    {
        const int iMost = std::min(int(rWords.size()), m_r.Chance(50) ? 8 : 1 << 30);
        std::uint32_t& rWord = rWords[std::size_t(m_r.Int(0, iMost - 1))];
        rWord = mStrangeWord(rWord);
        return;
    }
    const int iLength = m_r.Pick({0, iWords / 2, iWords - 3, iWords - 1, iWords, iWords + 2});
    r.vuiData.resize(std::size_t(std::max(iLength, 0)));
    for (int k = m_r.Int(0, 3); k > 0; --k) r.strTail += char(m_r.Int(1, 127));
}

/// Whether neither side needs much memory for it.
bool CGenerator::mIsModest(const Request& r) const
{
    if (r.uiType != Msg::eProjSize && r.uiType != Msg::eVolSize && r.uiType != Msg::eMProjSize)
        return true;
    const double dSize = double(r.Field(4)) * r.Field(5) * r.Field(6);
    const bool bTooMuch = m_rModel.ulMemory > 0 && 4 * dSize > double(m_rModel.ulMemory);
    return dSize < 300000 || dSize > 0x7fffffff || bTooMuch;
}
