#pragma once

#include <memory>
#include <string>

#include "server/Data/Recon/AlignOp.h"

/// The last request for a transform with the logarithmic scale.
class CTransformlOp : public CAlignOp
{
public:
    static CTransformlOp* GetInstance();
    static void DeleteInstance() { m_pInstance.reset(); }

    /// TRANSFORML: fields 4, 5 = measured projection, projection of the stack;
    /// fields 6 to 11 = matrix, 12 to 15 = scale 0 to 3; data: scale 4, 5.
    /// False with a reason when the request cannot be served; nothing changes then.
    [[nodiscard]] bool HandleTransforml(const CRemotePacket& rPacket, std::string& rReason);
    static std::uint32_t GetMaxData(const CRemotePacket&) { return 8; }  ///< in use, bytes

private:
    CTransformlOp() = default;
    static std::unique_ptr<CTransformlOp> m_pInstance;
};
