#pragma once

#include <memory>
#include <string>

#include "server/Data/Recon/AlignOp.h"

/// The last request for a comparison with the linear scale. It outlives the client that sent it.
class CCompareOp : public CAlignOp
{
public:
    static CCompareOp* GetInstance();
    static void DeleteInstance() { m_pInstance.reset(); }

    /// COMPARE: fields 4, 5 = measured projection, projection of the stack,
    /// 6, 7 = rows (stored, not used), 8 to 13 = matrix,
    /// 14, 15 = scale 0, 1; data: scale 2.
    /// False with a reason when the request cannot be served; nothing changes then but the sums,
    /// which are reset.
    [[nodiscard]] bool Handle(const CRemotePacket& rPacket, std::string& rReason);
    static std::uint32_t GetMaxData(const CRemotePacket&) { return 4; }  ///< in use, bytes

    std::uint32_t GetStartY() const { return m_uiStartY; }
    std::uint32_t GetFinalY() const { return m_uiFinalY; }

private:
    CCompareOp() = default;
    static std::unique_ptr<CCompareOp> m_pInstance;
    std::uint32_t m_uiStartY = 0;
    std::uint32_t m_uiFinalY = 0;
};
