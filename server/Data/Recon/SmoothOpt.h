#pragma once

#include <cstdint>
#include <memory>

#include "Util/Util_Singleton.h"
#include "Util/Util_Volume.h"
#include "server/Data/RequestPlan.h"

/// The smoothing interval and kernel.
class CSmoothOpt : public Util_Singleton<CSmoothOpt>
{
public:
    /// SMOOTHOPT: field 4 = interval, 5, 6, 7 = kernel X, Y, Z, any of them 0 for an empty kernel;
    /// data: the kernel, X fastest; may end early, the rest is 0.
    CRequestPlan HandleSmoothOpt(const CRemotePacket& rPacket);

    const Util_Volume* GetKernel() const { return m_pKernel.get(); }  ///< null: no kernel
    std::uint32_t GetInterval() const { return m_uiInterval; }

private:
    CRequestPlan mPlan(const CRemotePacket& rPacket);
    void mSet(const CRemotePacket& rPacket);

    std::unique_ptr<Util_Volume> m_pKernel;
    std::uint32_t m_uiInterval = 0;
};
