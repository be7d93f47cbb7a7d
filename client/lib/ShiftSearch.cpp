#include "talven/ShiftSearch.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace talven
{
namespace
{

constexpr double g_dNotComparable = -2;  // below every correlation
constexpr std::size_t g_tCandidates = 5;

}  // namespace

CShiftSearch::CShiftSearch(int iRange, double dLeastCount, Probe aProbe)
    : m_iRange(iRange), m_dLeastCount(dLeastCount), m_aProbe(std::move(aProbe))
{
}

CShiftSearch::EResult CShiftSearch::Run(ShiftMatch& rMatch)
{
    const int iStep = m_iRange <= 4 ? 1 : m_iRange <= 16 ? 2 : 4;
    Shift aBest = {0, 0};
    for (Shift aShift : mScan(iStep))
    {
        for (int i = std::max(1, iStep / 2); i >= 1; i /= 2) aShift = mClimb(aShift, i);
        if (mGetScore(aShift) > mGetScore(aBest)) aBest = aShift;
    }
    const double dBest = mGetScore(aBest);
    const auto [iX, iY] = aBest;
    const double dX = iX + FitPeak(mGetScore({iX - 1, iY}), dBest, mGetScore({iX + 1, iY}));
    const double dY = iY + FitPeak(mGetScore({iX, iY - 1}), dBest, mGetScore({iX, iY + 1}));
    rMatch.bAtEdge = std::abs(iX) == m_iRange || std::abs(iY) == m_iRange;

    // The parabola is a guess: it must do better than the whole pixel.
    rMatch.dX = dX;
    rMatch.dY = dY;
    rMatch.dCorrelation = mCompare(dX, dY, rMatch.aSums);
    if (rMatch.dCorrelation < dBest)
    {
        rMatch.dX = iX;
        rMatch.dY = iY;
        rMatch.dCorrelation = mCompare(iX, iY, rMatch.aSums);
    }
    if (m_bEnded) return EResult::eEnded;
    return dBest > g_dNotComparable ? EResult::eFound : EResult::eNothing;
}

/// The best few shifts of the grid, best first.
std::vector<CShiftSearch::Shift> CShiftSearch::mScan(int iStep)
{
    std::vector<std::pair<double, Shift>> aAll;
    const int iSteps = m_iRange / iStep;
    for (int y = -iSteps; y <= iSteps; ++y)
        for (int x = -iSteps; x <= iSteps; ++x)
        {
            const Shift aShift = {x * iStep, y * iStep};
            aAll.emplace_back(mGetScore(aShift), aShift);
        }
    const std::size_t tKept = std::min(g_tCandidates, aAll.size());
    std::partial_sort(aAll.begin(), aAll.begin() + static_cast<std::ptrdiff_t>(tKept), aAll.end(),
                      [](const auto& a, const auto& b) { return a.first > b.first; });
    std::vector<Shift> aBest;
    for (std::size_t i = 0; i < tKept; ++i) aBest.push_back(aAll[i].second);
    return aBest;
}

/// Goes to the best neighbour at this distance until there is none better.
CShiftSearch::Shift CShiftSearch::mClimb(Shift aShift, int iStep)
{
    while (!m_bEnded)
    {
        Shift aBest = aShift;
        for (int y = -iStep; y <= iStep; y += iStep)
            for (int x = -iStep; x <= iStep; x += iStep)
            {
                const Shift aNext = {aShift.first + x, aShift.second + y};
                if (mIsInside(aNext) && mGetScore(aNext) > mGetScore(aBest)) aBest = aNext;
            }
        if (aBest == aShift) break;
        aShift = aBest;
    }
    return aShift;
}

bool CShiftSearch::mIsInside(Shift aShift) const
{
    return std::abs(aShift.first) <= m_iRange && std::abs(aShift.second) <= m_iRange;
}

double CShiftSearch::mGetScore(Shift aShift)
{
    const auto pKnown = m_aScores.find(aShift);
    if (pKnown != m_aScores.end()) return pKnown->second;
    CompareSums aSums;
    return m_aScores[aShift] = mCompare(aShift.first, aShift.second, aSums);
}

double CShiftSearch::mCompare(double dX, double dY, CompareSums& rSums)
{
    if (m_bEnded) return g_dNotComparable;
    m_bEnded = !m_aProbe(dX, dY, rSums);
    if (m_bEnded || rSums.fCount < m_dLeastCount) return g_dNotComparable;
    const double dCorrelation = CalcCorrelation(rSums);
    return std::isnan(dCorrelation) ? g_dNotComparable : dCorrelation;
}

}  // namespace talven
