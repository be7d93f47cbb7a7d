#pragma once

#include <array>

#include "Util/Util_Singleton.h"
#include "server/Data/RequestPlan.h"

/// The weight box. It outlives the client that sent it.
class CWeightOpt : public Util_Singleton<CWeightOpt>
{
public:
    /// WEIGHTOPT: fields 4, 5 = switches for reconstruction and projection, either of them switches
    /// the box on; floats: 6, 7 origin, 8, 9 dimensions of the box. Any value is stored; jobs
    /// check.
    CRequestPlan HandleWeightOpt(const CRemotePacket& rPacket);

    bool HasBox() const { return m_bHasBox; }  ///< false while both switches are off
    const std::array<float, 2>& GetOrig() const { return m_afOrig; }  ///< X, Z
    const std::array<float, 2>& GetDim() const { return m_afDim; }

private:
    std::array<float, 2> m_afOrig{};
    std::array<float, 2> m_afDim{};
    bool m_bHasBox = false;
};
