#include "server/Data/Recon/TransformlOp.h"

std::unique_ptr<CTransformlOp> CTransformlOp::m_pInstance;

CTransformlOp* CTransformlOp::GetInstance()
{
    if (!m_pInstance) m_pInstance.reset(new CTransformlOp);
    return m_pInstance.get();
}

bool CTransformlOp::HandleTransforml(const CRemotePacket& rPacket, std::string& rReason)
{
    return mRead(rPacket, {6, 4, 2}, rReason);
}
