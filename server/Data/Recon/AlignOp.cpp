#include "server/Data/Recon/AlignOp.h"

#include <cmath>
#include <cstdio>
#include <limits>

#include "server/Data/Recon/CompareSum.h"
#include "server/Data/Refuse.h"
#include "server/Data/RemotePacket.h"

namespace
{
bool CheckFinite(const char* pcWhat, std::span<const float> fValues, std::string& rReason)
{
    for (std::size_t i = 0; i < fValues.size(); ++i)
        if (!std::isfinite(fValues[i]))
            return Refuse(rReason, "value %zu of the %s is %g", i, pcWhat, double(fValues[i]));
    return true;
}

/// The upper limit of the results and the floor under the logarithm may be infinitely far away.
bool CheckScale(std::array<float, 6> afScale, std::string& rReason)
{
    constexpr float fInfinity = std::numeric_limits<float>::infinity();
    if (afScale[2] == fInfinity) afScale[2] = 0;
    if (afScale[3] == -fInfinity) afScale[3] = 0;
    return CheckFinite("scale", afScale, rReason);
}
}  // namespace

CRequestPlan CAlignOp::mPlan(const Layout& rLayout, void (*fnTrace)(const CRemotePacket& rPacket))
{
    return CRequestPlan(
        [this, rLayout, fnTrace](const CRemotePacket& rSent, std::string& rReason)
        {
            if (rLayout.bResetsSums) CCompareSum::GetInstance()->Reset();
            if (!mRead(rSent, rLayout, rReason)) return false;
            if (fnTrace) fnTrace(rSent);
            return true;
        },
        static_cast<std::uint32_t>(4 * rLayout.iDataScales));
}

bool CAlignOp::mRead(const CRemotePacket& rPacket, const Layout& rLayout, std::string& rReason)
{
    std::array<float, 6> afMatrix{}, afScale{};
    for (int i = 0; i < 6; ++i)
        afMatrix[static_cast<std::size_t>(i)] = rPacket.GetNthFieldF(rLayout.iMatrixField + i);
    for (int i = 0; i < rLayout.iHeaderScales; ++i)
        afScale[static_cast<std::size_t>(i)] = rPacket.GetNthFieldF(rLayout.iMatrixField + 6 + i);
    const auto tHeader = static_cast<std::size_t>(rLayout.iHeaderScales);
    const auto tData = static_cast<std::size_t>(rLayout.iDataScales);
    if (tData > 0 && !rPacket.CopyData4(0, std::span(afScale).subspan(tHeader, tData)))
        return Refuse(rReason, "%u bytes of data, %zu needed", rPacket.GetOptSize(), 4 * tData);
    if (!CheckFinite("matrix", afMatrix, rReason) || !CheckScale(afScale, rReason)) return false;
    m_afMatrix = afMatrix;
    m_afScale = afScale;
    m_uiMProj = rPacket.GetNthField(4);
    m_uiAProj = rPacket.GetNthField(5);
    return true;
}

void CAlignOp::mPrint(const CRemotePacket& rPacket, int iField, int iCount)
{
    for (int i = 0; i < iCount; ++i)
        std::printf("%7.2f ", double(rPacket.GetNthFieldF(iField + i)));
    std::puts("");
}
