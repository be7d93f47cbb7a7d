#pragma once

#include "Util/Util_Singleton.h"
#include "server/Data/Recon/AlignOp.h"

/// The last request for a comparison with the logarithmic scale. It outlives the client that sent
/// it.
class CComparelOp : public Util_Singleton<CComparelOp>, public CAlignOp
{
public:
    /// COMPAREL: as COMPARE; data: scale 2 to 5.
    CRequestPlan Handle(const CRemotePacket&) { return mPlan({8, 2, 4, true}); }
};
