#include <algorithm>
#include <limits>

#include "tests/soak/Session.h"
#include "tests/wire/Messages.h"

namespace
{
constexpr std::uint32_t g_uiMax = 0xffffffffu, g_uiHalf = 0x80000000u;
const std::uint32_t g_uiNaN = Bits(std::numeric_limits<float>::quiet_NaN());
const std::uint32_t g_uiInfinity = Bits(std::numeric_limits<float>::infinity());

void Append(std::vector<Request>& rAll, const std::vector<Request>& rMore)
{
    rAll.insert(rAll.end(), rMore.begin(), rMore.end());
}
}  // namespace

/// Something that the server holds is as it was.
bool CSession::mLook()
{
    const Model& m = m_aModel;
    const int iWhat = m_aRandom.Int(0, 3);
    if (iWhat == 0 && !m.aStack.IsEmpty())
    {
        const int n = m_aRandom.Int(0, m.aStack.iN - 1);
        return mGet(Msg::eProjGet, n, m.aStack.Nth(n));
    }
    if (iWhat == 1 && !m.aVolume.IsEmpty())
    {
        const int z = m_aRandom.Int(0, m.aVolume.iN - 1);
        return mGet(Msg::eVolGet, z, m.aVolume.Nth(z));
    }
    if (iWhat == 2 && !m.vvfStat.empty())
    {
        const int i = m_aRandom.Int(0, int(m.vvfStat.size()) - 1);
        return mGet(Msg::eReconStatGet, i, m.vvfStat[std::size_t(i)]);
    }
    if (!mServe({Msg::eCompReply, {}, {}})) return false;
    return !m.auiSums || std::equal(m.auiSums->begin(), m.auiSums->end(), &m_aReply.auiFields[7]) ||
           mWrong("COMPREPLY: not the sums of the last comparison");
}

/// Messages without a reply: the next reply is another one's.
bool CSession::mIgnored()
{
    for (int i = m_aRandom.Int(1, 4); i > 0; --i)
    {
        const std::uint32_t uiType =
            m_aRandom.Pick({std::uint32_t(Msg::eLog), std::uint32_t(Msg::eCtfOpt),
                            std::uint32_t(Msg::eContinuation), 28u, 10001u, g_uiMax});
        Words vuiData(std::size_t(m_aRandom.Magnitude(1, 30000)));
        for (std::uint32_t& rWord : vuiData) rWord = m_aRandom.Word();
        if (!m_aClient.Send(uiType, {m_aRandom.Word()}, vuiData)) return mLost("ignored message");
    }
    return mLook();
}

/// A request that must be refused; then the session goes on.
bool CSession::mRefusal()
{
    std::vector<Request> vRequests;
    const int iKind = m_aRandom.Int(0, 2);
    if (iKind == 0) vRequests = mBadUploads();
    if (iKind == 1) vRequests = mBadOptions();
    if (iKind == 2) vRequests = mBadJobs();
    const Request& rRequest = vRequests[std::size_t(m_aRandom.Int(0, int(vRequests.size()) - 1))];
    if (!mServe(rRequest, false)) return false;
    if (rRequest.uiType == Msg::eCompare || rRequest.uiType == Msg::eComparel)
    {
        m_aModel.auiSums.emplace().fill(0);
        if (std::any_of(&m_aReply.auiFields[6], m_aReply.auiFields.end(),
                        [](std::uint32_t uiWord) { return uiWord != 0; }))
            return mWrong("refused comparison: sums are not 0");
    }
    return mLook();
}

std::vector<Request> CSession::mBadUploads()
{
    const auto uiFew = std::uint32_t(m_aRandom.Int(1, 9));
    std::vector<Request> vAll;
    for (const std::uint32_t uiType : {Msg::eProjSize, Msg::eVolSize, Msg::eMProjSize})
        Append(vAll, {{uiType, {0, uiFew, uiFew}, {}},
                      {uiType, {uiFew, uiFew, 0}, {}},
                      {uiType, {1u << 16, uiFew, 1u << 15}, {}},
                      {uiType, {g_uiHalf, 2, g_uiHalf}, {}},
                      {uiType, {uiFew, g_uiMax, 1}, {}}});
    vAll.push_back({Msg::eProjSize, {uiFew, 2, 2}, Words(5)});
    const struct
    {
        std::uint32_t uiSet, uiGet;
        const Images& rImages;
        std::size_t tMost;  ///< words of one image
    } aHolders[] = {{Msg::eProjSet, Msg::eProjGet, m_aModel.aStack,
                     m_aModel.aStack.GetPixels() + 2 * std::size_t(m_aModel.aStack.iY)},
                    {Msg::eVolSet, Msg::eVolGet, m_aModel.aVolume, m_aModel.aVolume.GetPixels()},
                    {Msg::eMProjSet, 0, m_aModel.aMeasured, m_aModel.aMeasured.GetPixels()}};
    for (const auto& [uiSet, uiGet, rImages, tMost] : aHolders)
        for (const std::uint32_t uiIndex : {std::uint32_t(rImages.iN), g_uiHalf, g_uiMax})
        {
            vAll.push_back({uiSet, {uiIndex}, Words(uiFew)});
            vAll.push_back({uiSet, {0}, Words(tMost + uiFew)});
            if (uiGet != 0) vAll.push_back({uiGet, {uiIndex}, {}});
        }
    return vAll;
}

std::vector<Request> CSession::mBadOptions()
{
    const auto uiFew = std::uint32_t(m_aRandom.Int(1, 9));
    return {{Msg::eSetOp, {1, uiFew}, Words(uiFew + 1)},
            {Msg::eSetOp, {1, uiFew}, Words(uiFew - 1)},
            {Msg::eSetOp, {1, g_uiMax}, Words(uiFew)},
            {Msg::eReconOpt, {1, uiFew, 2, 0, 1}, Words(2 * uiFew + 3)},
            {Msg::eReconOpt, {2, uiFew, 2, 0, 1}, Words(2 * uiFew + 1)},
            {Msg::eReconOpt, {1, g_uiHalf, 2, 0, 1}, Words(2)},
            {Msg::eReconOpt, {2, g_uiMax, g_uiMax, 0, 1}, Words(uiFew)},
            {Msg::eSmoothOpt, {1, 0, uiFew, uiFew}, Words(uiFew)},
            {Msg::eSmoothOpt, {1, 256, 1, 1}, Words(256)},
            {Msg::eSmoothOpt, {1, 255, 255, 255}, Words(uiFew)},
            {Msg::eSmoothOpt, {1, uiFew, 2, 1}, Words(2 * uiFew + 1)},
            {Msg::eSmoothOpt, {1, g_uiHalf, 2, 1}, Words(uiFew)},
            {Msg::eReconStatGet, {std::uint32_t(m_aModel.vvfStat.size())}, {}},
            {Msg::eReconStatGet, {g_uiMax}, {}}};
}

/// Alignments that fail for one wrong word or for want of data.
std::vector<Request> CSession::mBadJobs()
{
    const OracleAlign aJob = mMakeAlignJob();
    const bool bCompare = m_aRandom.Chance(0.5f);
    const Request aGood = mMakeAlign(bCompare, aJob, 0, 0);
    const std::size_t tMatrix = bCompare ? 4 : 2;
    const std::pair<std::size_t, std::uint32_t> aFaults[] = {
        {0, std::uint32_t(m_aModel.aMeasured.iN)},
        {0, g_uiMax},
        {1, std::uint32_t(m_aModel.aStack.iN)},
        {1, g_uiHalf},
        {tMatrix + 3, g_uiNaN},
        {tMatrix + 5, g_uiInfinity},
        {tMatrix + 6, g_uiNaN},
        {tMatrix + 7, g_uiInfinity}};
    std::vector<Request> vAll;
    for (const auto& [tField, uiValue] : aFaults)
    {
        vAll.push_back(aGood);
        vAll.back().vuiFields[tField] = uiValue;
    }
    if (aGood.vuiData.empty()) return vAll;
    vAll.push_back(aGood);
    vAll.back().vuiData.pop_back();
    return vAll;
}
