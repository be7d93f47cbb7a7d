#pragma once

#include "Util/Util_Singleton.h"
#include "server/Data/Recon/AlignOp.h"

/// The last request for a comparison with the linear scale. It outlives the client that sent it.
class CCompareOp : public Util_Singleton<CCompareOp>, public CAlignOp
{
public:
    /// COMPARE: fields 4, 5 = measured projection, projection of the stack, 6, 7 = rows (not used),
    /// 8 to 13 = matrix, 14, 15 = scale 0, 1; data: scale 2.
    CRequestPlan Handle(const CRemotePacket&) { return mPlan({8, 2, 1, true}, mTrace); }

private:
    static void mTrace(const CRemotePacket& rPacket);
};
