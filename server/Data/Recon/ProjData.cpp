#include "server/Data/Recon/ProjData.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "server/Data/Recon/HolderMemory.h"
#include "server/Data/Recon/SetOp.h"
#include "server/Data/RemotePacket.h"

namespace
{
constexpr std::uint32_t g_uiPair = 8;  // bytes of two 32-bit words

/// First valid column and one past the last one of a row of iX pixels.
std::pair<std::uint32_t, std::uint32_t> FindRange(const float* pfRow, int iX)
{
    constexpr auto IsMissing = [](float fPixel) { return static_cast<double>(fPixel) < -1.0e15; };
    const float* pfEnd = pfRow + iX;
    const float* pfFirst = std::find_if_not(pfRow, pfEnd, IsMissing);
    if (pfFirst == pfEnd) return {iX + 1, 0};
    while (IsMissing(pfEnd[-1])) --pfEnd;
    return {static_cast<std::uint32_t>(pfFirst - pfRow), static_cast<std::uint32_t>(pfEnd - pfRow)};
}
}  // namespace

CProjData::CProjData() : CProjStack(g_uiPair, g_uiPair) {}

CRequestPlan CProjData::HandleProjSize(const CRemotePacket& rPacket)
{
    const Extents aSize(rPacket);
    std::string strReason;
    if (!mCheckSize(aSize, strReason)) return CRequestPlan::Refuse("%s", strReason.c_str());
    const std::uint32_t uiBytes = rPacket.GetOptSize();
    if (uiBytes > std::uint64_t{g_uiPair} * aSize.uiZ)
        return CRequestPlan::Refuse("%u bytes of data for %u projections of %u", uiBytes, aSize.uiZ,
                                    g_uiPair);
    return CRequestPlan([this, aSize](const CRemotePacket& rSent, std::string&)
                        { return mSetSize(aSize, rSent); },
                        uiBytes);
}

/// Memory that runs out changes nothing.
bool CProjData::mSetSize(const Extents& rSize, const CRemotePacket& rPacket)
{
    std::vector<float> vfPairs(rPacket.GetDataBytes() / g_uiPair * 2);
    if (!rPacket.CopyData4(0, std::span(vfPairs))) return false;
    auto pProjs = rSize.MakeVolume();
    std::vector<float> vfAngles(rSize.uiZ), vfDefocus(rSize.uiZ);
    std::vector<std::uint32_t> vuiRangeX(std::size_t{2} * rSize.uiY * rSize.uiZ);
    for (std::size_t i = 0; i < vfPairs.size() / 2; ++i)
    {
        vfAngles[i] = vfPairs[2 * i];
        vfDefocus[i] = vfPairs[2 * i + 1];
    }
    CSetOp::GetInstance()->SetDefault(rSize.uiZ);
    m_pProjs = std::move(pProjs);
    m_vfAngles = std::move(vfAngles);
    m_vfDefocus = std::move(vfDefocus);
    m_vuiRangeX = std::move(vuiRangeX);
    return true;
}

CRequestPlan CProjData::HandleProjSet(const CRemotePacket& rPacket)
{
    const std::uint32_t uiProj = rPacket.GetNthField(4), uiBytes = rPacket.GetOptSize();
    const std::uint64_t ulMost = mCountBytes(GetX(), GetY(), 1) - g_uiPair;
    if (!m_pProjs) return CRequestPlan::Refuse("projection %u before PROJSIZE", uiProj);
    if (uiProj >= GetNumProjs())
        return CRequestPlan::Refuse("projection %u of %u", uiProj, GetNumProjs());
    if (uiBytes > ulMost)
        return CRequestPlan::Refuse("%u bytes of data, a projection of %u x %u takes %llu", uiBytes,
                                    GetX(), GetY(), static_cast<unsigned long long>(ulMost));
    const auto aRange = std::as_writable_bytes(GetRangeX(uiProj));
    const std::size_t tRange = std::min<std::size_t>(uiBytes, aRange.size());
    auto* const pPixels = reinterpret_cast<std::byte*>(m_pProjs->GetSliceXY(int(uiProj)));
    return CRequestPlan(CRequestPlan::Target{aRange.first(tRange), {pPixels, uiBytes - tRange}});
}

std::span<std::uint32_t> CProjData::GetRangeX(std::uint32_t uiProj)
{
    const std::size_t tRow = std::size_t{2} * GetY();
    return std::span(m_vuiRangeX).subspan(tRow * uiProj, tRow);
}

void CProjData::DetRangeX()
{
    if (!m_pProjs) return;
    const int iX = m_pProjs->GetSizeX(), iY = m_pProjs->GetSizeY();
    std::uint32_t* puiRange = m_vuiRangeX.data();
    for (std::uint32_t p = 0; p < GetNumProjs(); ++p)
    {
        const float* pfRow = m_pProjs->GetSliceXY(static_cast<int>(p));
        for (int y = 0; y < iY; ++y, pfRow += iX, puiRange += 2)
            std::tie(puiRange[0], puiRange[1]) = FindRange(pfRow, iX);
    }
}
