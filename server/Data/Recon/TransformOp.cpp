#include "server/Data/Recon/TransformOp.h"

#include <cstdio>

std::unique_ptr<CTransformOp> CTransformOp::m_pInstance;

CTransformOp* CTransformOp::GetInstance()
{
    if (!m_pInstance) m_pInstance.reset(new CTransformOp);
    return m_pInstance.get();
}

bool CTransformOp::HandleTransform(const CRemotePacket& rPacket, std::string& rReason)
{
    if (!mRead(rPacket, {6, 3, 0}, rReason)) return false;
    std::printf("Transform: proj = %u  %u\n", GetMProj(), GetAProj());
    mPrint(GetMatrix());
    mPrint(GetScale().first(3));
    std::puts("");
    return true;
}
