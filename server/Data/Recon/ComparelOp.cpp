#include "server/Data/Recon/ComparelOp.h"

#include "server/Data/Recon/CompareSum.h"
#include "server/Data/RemotePacket.h"

std::unique_ptr<CComparelOp> CComparelOp::m_pInstance;

CComparelOp* CComparelOp::GetInstance()
{
    if (!m_pInstance) m_pInstance.reset(new CComparelOp);
    return m_pInstance.get();
}

bool CComparelOp::Handle(const CRemotePacket& rPacket, std::string& rReason)
{
    CCompareSum::GetInstance()->Reset();
    if (!mRead(rPacket, {8, 2, 4}, rReason)) return false;
    m_uiStartY = rPacket.GetNthField(6);
    m_uiFinalY = rPacket.GetNthField(7);
    return true;
}
