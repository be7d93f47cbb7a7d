#pragma once

#include <cstdint>
#include <mutex>
#include <span>
#include <vector>

#include "Util/Util_Singleton.h"

/// R-factor sums of the last iterative reconstruction, added up over all workers.
///
/// Layout [iteration][selected projection][2]: the raw sum, then the difference sum.
class CRfactor : public Util_Singleton<CRfactor>
{
public:
    /// Sets all sums to 0. Once per job, before any worker adds.
    void SetSize(std::uint32_t uiNumProjs, std::uint32_t uiIterations);
    /// Adds one worker's sums, same layout. Any thread.
    void SetRfactor(std::span<const double> adRfactor);
    std::uint32_t GetIterations();
    /// The sums of one iteration, [projection][2]; empty when there is no such iteration.
    std::vector<float> GetNthIteration(short sIteration);
    float GetRawFactor(int iIteration) { return mSum(iIteration, 0); }  ///< over all projections
    float GetDifFactor(int iIteration) { return mSum(iIteration, 1); }

private:
    float mSum(int iIteration, int iWhich);

    std::mutex m_aMutex;  // guards all below
    std::uint32_t m_uiIterations = 0;
    std::uint32_t m_uiNumProjs = 0;
    std::vector<double> m_vdFactor;
};
