#include "server/Data/Recon/ProjData.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "Util/Util_Volume.h"
#include "server/Data/Recon/HolderMemory.h"
#include "server/Data/Recon/SetOp.h"
#include "server/Data/Refuse.h"
#include "server/Data/RemotePacket.h"

std::unique_ptr<CProjData> CProjData::m_pInstance;

namespace
{
constexpr std::uint64_t g_ulPair = 8;  // bytes of two 32-bit words

/// Stack, angles, defocus and ranges of X x Y x N.
std::uint64_t CountBytes(std::uint64_t ulX, std::uint64_t ulY, std::uint64_t ulN)
{
    return ulN * (4 * ulX * ulY + g_ulPair * ulY + g_ulPair);
}

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

CProjData::CProjData() = default;
CProjData::~CProjData() = default;

CProjData* CProjData::GetInstance()
{
    if (!m_pInstance) m_pInstance.reset(new CProjData);
    return m_pInstance.get();
}

void CProjData::DeleteInstance()
{
    m_pInstance.reset();
}

std::size_t CProjData::GetBytes() const
{
    return m_pProjs ? CountBytes(m_auiSize[0], m_auiSize[1], m_auiSize[2]) : 0;
}

bool CProjData::mCheckSize(const CRemotePacket& rPacket, std::string& rReason) const
{
    const std::uint32_t uiX = rPacket.GetNthField(4), uiY = rPacket.GetNthField(5);
    const std::uint32_t uiN = rPacket.GetNthField(6);
    return CheckExtents("stack", uiX, uiY, uiN, rReason) &&
           CheckMemory(GetBytes(), CountBytes(uiX, uiY, uiN), rReason);
}

std::uint32_t CProjData::GetMaxProjSize(const CRemotePacket& rPacket) const
{
    std::string strReason;
    return mCheckSize(rPacket, strReason) ? ClampToUint32(g_ulPair * rPacket.GetNthField(6)) : 0;
}

bool CProjData::HandleProjSize(const CRemotePacket& rPacket, std::string& rReason)
{
    if (!mCheckSize(rPacket, rReason)) return false;
    const std::uint32_t uiX = rPacket.GetNthField(4), uiY = rPacket.GetNthField(5);
    const std::uint32_t uiN = rPacket.GetNthField(6);
    if (rPacket.GetOptSize() > g_ulPair * uiN)
        return Refuse(rReason, "%u bytes of data for %u projections of 8", rPacket.GetOptSize(),
                      uiN);
    std::vector<float> vfPairs(rPacket.GetDataBytes() / g_ulPair * 2);
    if (!rPacket.CopyData4(0, std::span(vfPairs))) return Refuse(rReason, "data is missing");

    auto pProjs = std::make_unique<Util_Volume>();
    pProjs->SetSize(static_cast<int>(uiX), static_cast<int>(uiY), static_cast<int>(uiN));
    std::vector<float> vfAngles(uiN), vfDefocus(uiN);
    std::vector<std::uint32_t> vuiRangeX(std::size_t{2} * uiY * uiN);
    for (std::size_t i = 0; i < vfPairs.size() / 2; ++i)
    {
        vfAngles[i] = vfPairs[2 * i];
        vfDefocus[i] = vfPairs[2 * i + 1];
    }
    CSetOp::GetInstance()->SetDefault(uiN);

    m_pProjs = std::move(pProjs);
    m_vfAngles = std::move(vfAngles);
    m_vfDefocus = std::move(vfDefocus);
    m_vuiRangeX = std::move(vuiRangeX);
    m_auiSize[0] = uiX;
    m_auiSize[1] = uiY;
    m_auiSize[2] = uiN;
    return true;
}

std::optional<UploadTarget> CProjData::HandleProjSet(const CRemotePacket& rPacket,
                                                     std::string& rReason)
{
    const std::uint32_t uiProj = rPacket.GetNthField(4), uiBytes = rPacket.GetOptSize();
    if (!m_pProjs)
        Refuse(rReason, "projection %u before PROJSIZE", uiProj);
    else if (uiProj >= GetNumProjs())
        Refuse(rReason, "projection %u of %u", uiProj, GetNumProjs());
    else if (uiBytes > CountBytes(GetX(), GetY(), 1) - g_ulPair)
        Refuse(rReason, "%u bytes of data, a projection of %u x %u takes %llu", uiBytes, GetX(),
               GetY(), static_cast<unsigned long long>(CountBytes(GetX(), GetY(), 1) - g_ulPair));
    else
    {
        const auto aRange = std::as_writable_bytes(GetRangeX(uiProj));
        const std::size_t tRange = std::min<std::size_t>(uiBytes, aRange.size());
        auto* const pPixels = reinterpret_cast<std::byte*>(m_pProjs->GetSliceXY(int(uiProj)));
        return UploadTarget{aRange.first(tRange), {pPixels, uiBytes - tRange}};
    }
    return {};
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
