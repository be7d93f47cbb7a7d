#pragma once

#include <array>
#include <memory>

class CRemotePacket;

/// The weighting switches and the weight box. They outlive the client that sent them.
class CWeightOpt
{
public:
    static CWeightOpt* GetInstance();
    static void DeleteInstance() { m_pInstance.reset(); }

    /// WEIGHTOPT: fields 4, 5 = switches for reconstruction and projection; floats: 6, 7 origin,
    /// 8, 9 dimensions of the box. Any value is stored; jobs check.
    void HandleWeightOpt(const CRemotePacket& rPacket);

    bool IsWeightRecon() const { return m_bWeightRecon; }
    bool IsWeightProj() const { return m_bWeightProj; }
    // Two floats (X, Z), null while both switches are off.
    const float* GetOrig() const { return m_bHasBox ? m_afOrig.data() : nullptr; }
    const float* GetDim() const { return m_bHasBox ? m_afDim.data() : nullptr; }

private:
    CWeightOpt() = default;
    static std::unique_ptr<CWeightOpt> m_pInstance;
    std::array<float, 2> m_afOrig{};
    std::array<float, 2> m_afDim{};
    bool m_bHasBox = false;
    bool m_bWeightRecon = false;
    bool m_bWeightProj = false;
};
