#pragma once

#include <memory>
#include <string>

#include "server/Data/Recon/AlignOp.h"

/// The last request for a transform with the linear scale.
class CTransformOp : public CAlignOp
{
public:
    static CTransformOp* GetInstance();
    static void DeleteInstance() { m_pInstance.reset(); }

    /// TRANSFORM: fields 4, 5 = measured projection, projection of the stack;
    /// fields 6 to 11 = matrix, 12 to 14 = scale 0 to 2.
    /// False with a reason when the request cannot be served; nothing changes then.
    [[nodiscard]] bool HandleTransform(const CRemotePacket& rPacket, std::string& rReason);

private:
    CTransformOp() = default;
    static std::unique_ptr<CTransformOp> m_pInstance;
};
