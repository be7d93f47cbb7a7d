#include "Slabs.h"

#include <algorithm>

namespace talven
{

std::vector<RowRange> CutIntoParts(int iRows, int iParts)
{
    const int iUnit = iRows >= iParts * g_iRowsAtOnce ? g_iRowsAtOnce : 1;
    const long long iUnits = (iRows + iUnit - 1) / iUnit;
    std::vector<RowRange> aParts;
    for (int i = 0; i < iParts; ++i)
        aParts.push_back({static_cast<int>(i * iUnits / iParts) * iUnit,
                          std::min(iRows, static_cast<int>((i + 1) * iUnits / iParts) * iUnit)});
    return aParts;
}

std::vector<RowRange> CutByRows(int iRows, int iRowsEach)
{
    std::vector<RowRange> aParts;
    for (int iFirst = 0; iFirst < iRows; iFirst += iRowsEach)
        aParts.push_back({iFirst, iFirst + std::min(iRowsEach, iRows - iFirst)});
    return aParts;
}

std::vector<RowRange> CutToFit(int iRows, const std::function<bool(const RowRange&)>& Fits)
{
    // Every row more takes more memory: find the greatest number of rows that fits.
    const auto AllFit = [&](int iRowsEach)
    { return std::ranges::all_of(CutByRows(iRows, iRowsEach), Fits); };
    if (AllFit(iRows)) return {{0, iRows}};
    int iFits = 0, iTooMany = iRows;
    while (iTooMany - iFits > 1)
    {
        const int iMiddle = iFits + (iTooMany - iFits) / 2;
        (Fits({0, iMiddle}) && AllFit(iMiddle) ? iFits : iTooMany) = iMiddle;
    }
    if (iFits == 0) return {};
    const int iParts = (iRows + iFits - 1) / iFits;
    const std::vector<RowRange> aEven = CutIntoParts(iRows, iParts);
    return std::ranges::all_of(aEven, Fits) ? aEven : CutByRows(iRows, iFits);
}

}  // namespace talven
