#include "server/Data/Recon/CompareOp.h"

#include <cstdio>

#include "server/Data/RemotePacket.h"

void CCompareOp::mTrace(const CRemotePacket& rPacket)
{
    std::printf("Compare: %u  %u  %u  %u\n", rPacket.GetNthField(4), rPacket.GetNthField(5),
                rPacket.GetNthField(6), rPacket.GetNthField(7));
    mPrint(rPacket, 8, 6 + 2);
}
