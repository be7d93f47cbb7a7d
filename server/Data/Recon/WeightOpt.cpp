#include "server/Data/Recon/WeightOpt.h"

#include "server/Data/RemotePacket.h"

CRequestPlan CWeightOpt::HandleWeightOpt(const CRemotePacket&)
{
    return CRequestPlan(
        [this](const CRemotePacket& rSent, std::string&)
        {
            m_bHasBox = rSent.GetNthField(4) != 0 || rSent.GetNthField(5) != 0;
            m_afOrig = {rSent.GetNthFieldF(6), rSent.GetNthFieldF(7)};
            m_afDim = {rSent.GetNthFieldF(8), rSent.GetNthFieldF(9)};
            return true;
        });
}
