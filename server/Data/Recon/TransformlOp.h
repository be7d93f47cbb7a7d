#pragma once

#include "Util/Util_Singleton.h"
#include "server/Data/Recon/AlignOp.h"

/// The last request for a transform with the logarithmic scale.
class CTransformlOp : public Util_Singleton<CTransformlOp>, public CAlignOp
{
public:
    /// TRANSFORML: fields 4, 5 = measured projection, projection of the stack;
    /// fields 6 to 11 = matrix, 12 to 15 = scale 0 to 3; data: scale 4, 5.
    CRequestPlan HandleTransforml(const CRemotePacket&) { return mPlan({6, 4, 2}); }
};
