#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

#include "Util/Util_Singleton.h"
#include "Util/Util_Time.h"

/// The sums of the last comparison. They outlive the client that asked for it.
///
/// Workers add the sums of their bands in any order; the totals do not depend on it. The getters
/// belong to the session's thread, while no worker runs.
class CCompareSum : public Util_Singleton<CCompareSum>
{
public:
    /// What one band of rows contributes; a: projection of the stack, b: transformed measured one.
    struct Band
    {
        int iStartY = 0;                                                ///< first row of the band
        float fSumDiff = 0;                                             ///< |a - b|
        float fSumCross = 0;                                            ///< a b
        float fSumAligned = 0, fSumAlignedAbs = 0, fSumAlignedSqr = 0;  ///< a
        float fSumTransed = 0, fSumTransedAbs = 0, fSumTransedSqr = 0;  ///< b
        float fCount = 0;  ///< pixels that are not missing
    };

    void Reset();  ///< sums of 0, and the timer started
    void SetZero();
    void StartTimer();
    /// Milliseconds since the timer was started; 0 when it never was.
    void StopTimer();
    void Add(const Band& rBand);  ///< any thread

    // Bits of the sums as floats, ready for a reply.
    std::uint32_t GetSumDiff() const { return mSum(&Band::fSumDiff); }
    std::uint32_t GetSumCross() const { return mSum(&Band::fSumCross); }
    std::uint32_t GetSumAligned() const { return mSum(&Band::fSumAligned); }
    std::uint32_t GetSumAlignedAbs() const { return mSum(&Band::fSumAlignedAbs); }
    std::uint32_t GetSumAlignedSqr() const { return mSum(&Band::fSumAlignedSqr); }
    std::uint32_t GetSumTransed() const { return mSum(&Band::fSumTransed); }
    std::uint32_t GetSumTransedAbs() const { return mSum(&Band::fSumTransedAbs); }
    std::uint32_t GetSumTransedSqr() const { return mSum(&Band::fSumTransedSqr); }
    std::uint32_t GetCount() const { return mSum(&Band::fCount); }
    /// As the last StopTimer() found it.
    std::uint32_t GetMilliseconds() const { return m_uiMilliseconds; }

private:
    std::uint32_t mSum(float Band::*pfField) const;

    mutable std::mutex m_aMutex;  // guards the bands
    std::vector<Band> m_vBands;   // in the order of their rows
    std::uint32_t m_uiMilliseconds = 0;
    Util_Time m_aUtilTime;
    bool m_bStarted = false;
};
