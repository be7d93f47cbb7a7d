#include "server/Data/Recon/CompareOp.h"

#include <cstdio>

#include "server/Data/Recon/CompareSum.h"
#include "server/Data/RemotePacket.h"

std::unique_ptr<CCompareOp> CCompareOp::m_pInstance;

CCompareOp* CCompareOp::GetInstance()
{
    if (!m_pInstance) m_pInstance.reset(new CCompareOp);
    return m_pInstance.get();
}

bool CCompareOp::Handle(const CRemotePacket& rPacket, std::string& rReason)
{
    CCompareSum::GetInstance()->Reset();
    if (!mRead(rPacket, {8, 2, 1}, rReason)) return false;
    m_uiStartY = rPacket.GetNthField(6);
    m_uiFinalY = rPacket.GetNthField(7);
    std::printf("Compare: %u  %u  %u  %u\n", GetMProj(), GetAProj(), m_uiStartY, m_uiFinalY);
    mPrint(GetMatrix());
    mPrint(GetScale().first(2));
    std::puts("");
    return true;
}
