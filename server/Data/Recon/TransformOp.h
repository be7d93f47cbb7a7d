#pragma once

#include "Util/Util_Singleton.h"
#include "server/Data/Recon/AlignOp.h"

/// The last request for a transform with the linear scale.
class CTransformOp : public Util_Singleton<CTransformOp>, public CAlignOp
{
public:
    /// TRANSFORM: fields 4, 5 = measured projection, projection of the stack;
    /// fields 6 to 11 = matrix, 12 to 14 = scale 0 to 2.
    CRequestPlan HandleTransform(const CRemotePacket&) { return mPlan({6, 3, 0}, mTrace); }

private:
    static void mTrace(const CRemotePacket& rPacket);
};
