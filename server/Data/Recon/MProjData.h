#pragma once

#include "Util/Util_Singleton.h"
#include "server/Data/Recon/ProjStack.h"

/// The measured projections that transforms and comparisons align against: images only.
class CMProjData : public Util_Singleton<CMProjData>, public CProjStack
{
public:
    CMProjData() : CProjStack(0, 0) {}

    /// MPROJSIZE: fields 4, 5, 6 = X, Y, projections. Starts a stack of zeros.
    CRequestPlan HandleMProjSize(const CRemotePacket& rPacket);
    /// MPROJSET: field 4 = projection; data: pixels [y][x]; may end early.
    CRequestPlan HandleMProjSet(const CRemotePacket& rPacket);
};
