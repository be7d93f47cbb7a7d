#include "server/Data/Recon/WeightOpt.h"

#include "server/Data/RemotePacket.h"

std::unique_ptr<CWeightOpt> CWeightOpt::m_pInstance;

CWeightOpt* CWeightOpt::GetInstance()
{
    if (!m_pInstance) m_pInstance.reset(new CWeightOpt);
    return m_pInstance.get();
}

void CWeightOpt::HandleWeightOpt(const CRemotePacket& rPacket)
{
    m_bWeightRecon = rPacket.GetNthField(4) != 0;
    m_bWeightProj = rPacket.GetNthField(5) != 0;
    m_bHasBox = m_bWeightRecon || m_bWeightProj;
    m_afOrig = {rPacket.GetNthFieldF(6), rPacket.GetNthFieldF(7)};
    m_afDim = {rPacket.GetNthFieldF(8), rPacket.GetNthFieldF(9)};
}
