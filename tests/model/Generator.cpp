#include "tests/model/Generator.h"

#include <algorithm>
#include <limits>

namespace
{
bool IsJob(std::uint32_t uiType)
{
    return uiType == Msg::eReconstruct || uiType == Msg::eReproject ||
           (uiType >= Msg::eTransform && uiType <= Msg::eComparel);
}
}  // namespace

Request CGenerator::Next()
{
    if (m_vPlan.empty()) mPlan();
    while (const std::uint32_t uiRemedy = mFindRemedy(m_vPlan.front().uiType)) mPlanFirst(uiRemedy);
    const Planned aNext = m_vPlan.front();
    m_vPlan.pop_front();
    if (IsJob(aNext.uiType)) m_iRemedies = 0;

    Request aRequest = mMake(aNext);
    if (m_r.Chance(IsJob(aNext.uiType) ? 10 : 6))
    {
        Request aSpoilt = aRequest;
        mSpoil(aSpoilt);
        if (mIsModest(aSpoilt)) return aSpoilt;
    }
    const int iUploaded = m_r.Chance(70) ? 100 : 60;
    if (aRequest.uiType == Msg::eProjSize) mPlanImages(Msg::eProjSet, aRequest.Field(6), iUploaded);
    if (aRequest.uiType == Msg::eMProjSize) mPlanImages(Msg::eMProjSet, aRequest.Field(6), 100);
    if (aRequest.uiType == Msg::eVolSize && aRequest.Field(6) <= 300)
        mPlanImages(Msg::eVolSet, aRequest.Field(6), iUploaded == 100 ? 100 : m_r.Pick({0, 80}));
    return aRequest;
}

void CGenerator::mPlanImages(std::uint32_t uiType, std::uint32_t uiCount, int iPercent)
{
    for (int n = int(uiCount) - 1; n >= 0; --n)
        if (iPercent == 100 || m_r.Chance(iPercent)) m_vPlan.push_front({uiType, n});
}

void CGenerator::Ask()
{
    mPlanFirst(m_r.Pick({Msg::eProjGet, Msg::eVolGet, Msg::eReconStatGet, Msg::eCompReply}));
}

void CGenerator::mPlan()
{
    const int iWhat = m_r.Int(0, 99);
    const auto Plan = [this](std::initializer_list<std::uint32_t> uiTypes)
    {
        for (const std::uint32_t uiType : uiTypes) m_vPlan.push_back({uiType});
    };
    if (iWhat < 16) return Ask();
    if (iWhat < 36 && m_rModel.eMethod == EMethod::eBackProj && m_r.Chance(70))
        return Plan({Msg::eReconOpt, Msg::eReconstruct});
    if (iWhat < 36) return Plan({Msg::eReconstruct});
    if (iWhat < 44) return Plan({Msg::eReproject});
    if (iWhat < 56)
        return Plan({m_r.Pick({Msg::eTransform, Msg::eTransforml, Msg::eCompare, Msg::eComparel})});
    if (iWhat < 62) return Plan({Msg::eProjSize, Msg::eVolSize, Msg::eSetOp, Msg::eReconOpt});
    if (iWhat < 70) return Plan({Msg::eLog});
    Plan({m_r.Pick({Msg::eByteOrder, Msg::eServerProp, Msg::eProjSize, Msg::eProjSet, Msg::eVolSize,
                    Msg::eVolSet, Msg::eMProjSize, Msg::eMProjSet, Msg::eSetOp, Msg::eReconOpt,
                    Msg::eReconOpt, Msg::eWeightOpt, Msg::eSmoothOpt, Msg::eSmoothOpt})});
}

/// The message that a job needs first, 0 when it may go as it is.
std::uint32_t CGenerator::mFindRemedy(std::uint32_t uiType)
{
    const Model& m = m_rModel;
    if (!IsJob(uiType)) return 0;
    const bool bReproject = uiType == Msg::eReproject;
    if (uiType != Msg::eReconstruct && !bReproject)
    {
        if (m_iRemedies >= 2 || m_r.Chance(15)) return 0;
        ++m_iRemedies;
        return m.aMeasured.IsEmpty() ? Msg::eMProjSize : m.aStack.IsEmpty() ? Msg::eProjSize : 0;
    }
    std::uint32_t uiRemedy = m.FindObstacle(bReproject);
    if (uiRemedy == 0) uiRemedy = m.FindDoubt(bReproject);
    const bool bHeavy =
        m.FindObstacle(bReproject) == 0 && (m.GetWork() > m_dMostWork || m.aVolume.iN > 300);
    if (uiRemedy == 0 && bHeavy)
        uiRemedy = m_r.Pick({Msg::eSmoothOpt, Msg::eVolSize, Msg::eSetOp, Msg::eReconOpt});
    if (bHeavy && m_iRemedies >= 9)  // nothing helps
    {
        m_vPlan.front().uiType = Msg::eServerProp;
        return 0;
    }
    if (uiRemedy == 0 || (!bHeavy && (m_iRemedies >= 9 || m_r.Chance(4)))) return 0;
    ++m_iRemedies;
    return uiRemedy;
}

std::uint32_t CGenerator::mStrangeWord(std::uint32_t uiWord)
{
    constexpr float fInfinity = std::numeric_limits<float>::infinity();
    const auto Bits = [](float f) { return std::bit_cast<std::uint32_t>(f); };
    switch (m_r.Int(0, 3))
    {
    case 0:
        return uiWord + m_r.Pick({1u, 2u, 0xffffffffu});
    case 1:
        return m_r.Pick({0u, 1u, 255u, 256u, 0x8000u, 0x10000u, 0x20001u, 0x7fffffffu, 0x80000000u,
                         0xfffffffeu, 0xffffffffu});
    case 2:
        return Bits(m_r.Pick({std::numeric_limits<float>::quiet_NaN(), fInfinity, -fInfinity, 3e38f,
                              8.5070586e37f, -1e30f, -1.0000001e15f, -9.999999e14f, 1e-40f}));
    default:
        return std::uint32_t(m_r.Pick({m_rModel.aStack.iN, m_rModel.aVolume.iN,
                                       m_rModel.aMeasured.iN, int(m_rModel.vvuiStat.size())}));
    }
}

void CGenerator::mSpoil(Request& r)
{
    const int iWhat = m_r.Int(0, 9);
    if (iWhat < 5 && !r.vuiFields.empty())
    {
        std::uint32_t& rWord = r.vuiFields[std::size_t(m_r.Int(0, int(r.vuiFields.size()) - 1))];
        rWord = mStrangeWord(rWord);
    }
    else if (iWhat < 7 && !r.vuiData.empty())
    {
        const int iMost =
            m_r.Chance(50) ? std::min(int(r.vuiData.size()), 8) : int(r.vuiData.size());
        std::uint32_t& rWord = r.vuiData[std::size_t(m_r.Int(0, iMost - 1))];
        rWord = mStrangeWord(rWord);
    }
    else if (iWhat < 9)  // a little longer or shorter
    {
        const int iWords = int(r.vuiData.size()) + m_r.Int(-3, 2);
        r.vuiData.resize(std::size_t(std::max(iWords, 0)));
        for (int k = m_r.Int(0, 3); k > 0; --k) r.strTail += char(m_r.Int(1, 127));
    }
    else
        r.vuiData.resize(m_r.Chance(50) ? 0 : r.vuiData.size() / 2);
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
