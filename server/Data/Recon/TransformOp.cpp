#include "server/Data/Recon/TransformOp.h"

#include <cstdio>

#include "server/Data/RemotePacket.h"

void CTransformOp::mTrace(const CRemotePacket& rPacket)
{
    std::printf("Transform: proj = %u  %u\n", rPacket.GetNthField(4), rPacket.GetNthField(5));
    mPrint(rPacket, 6, 6 + 3);
}
