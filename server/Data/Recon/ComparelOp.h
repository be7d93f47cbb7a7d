#pragma once

#include <memory>
#include <string>

#include "server/Data/Recon/AlignOp.h"

/// The last request for a comparison with the logarithmic scale. It outlives the client that sent
/// it.
class CComparelOp : public CAlignOp
{
public:
    static CComparelOp* GetInstance();
    static void DeleteInstance() { m_pInstance.reset(); }

    /// COMPAREL: fields 4, 5 = measured projection, projection of the stack,
    /// 6, 7 = rows (stored, not used), 8 to 13 = matrix,
    /// 14, 15 = scale 0, 1; data: scale 2 to 5.
    /// False with a reason when the request cannot be served; nothing changes then but the sums,
    /// which are reset.
    [[nodiscard]] bool Handle(const CRemotePacket& rPacket, std::string& rReason);
    static std::uint32_t GetMaxData(const CRemotePacket&) { return 16; }  ///< in use, bytes

    std::uint32_t GetStartY() const { return m_uiStartY; }
    std::uint32_t GetFinalY() const { return m_uiFinalY; }

private:
    CComparelOp() = default;
    static std::unique_ptr<CComparelOp> m_pInstance;
    std::uint32_t m_uiStartY = 0;
    std::uint32_t m_uiFinalY = 0;
};
