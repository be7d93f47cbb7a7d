#include "server/Data/Recon/CompareSum.h"

#include <algorithm>
#include <bit>

void CCompareSum::Reset()
{
    SetZero();
    StartTimer();
}

void CCompareSum::SetZero()
{
    const std::lock_guard aLock(m_aMutex);
    m_vBands.clear();
    m_uiMilliseconds = 0;
}

void CCompareSum::StartTimer()
{
    m_aUtilTime.Measure();
    m_bStarted = true;
}

void CCompareSum::StopTimer()
{
    if (!m_bStarted) return;
    // The clock of the machine may be set back or far ahead.
    constexpr double dMost = 4294967295.0;
    m_uiMilliseconds = static_cast<std::uint32_t>(
        std::clamp(double(m_aUtilTime.GetElapsedSeconds()) * 1000, 0.0, dMost));
}

void CCompareSum::Add(const Band& rBand)
{
    const std::lock_guard aLock(m_aMutex);
    m_vBands.insert(std::ranges::upper_bound(m_vBands, rBand.iStartY, {}, &Band::iStartY), rBand);
}

std::uint32_t CCompareSum::mSum(float Band::*pfField) const
{
    const std::lock_guard aLock(m_aMutex);
    double dSum = 0;
    for (const Band& rBand : m_vBands) dSum += double(rBand.*pfField);
    return std::bit_cast<std::uint32_t>(static_cast<float>(dSum));
}
