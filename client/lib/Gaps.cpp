#include "Gaps.h"

#include <algorithm>

#include "talven/Alignment.h"

namespace talven
{

bool FillGaps(std::span<float> fRow)
{
    std::size_t tLast = fRow.size();  // given one before; the size: none
    for (std::size_t i = 0; i < fRow.size(); ++i)
    {
        if (IsMissing(fRow[i])) continue;
        const bool bFirst = tLast == fRow.size();
        const float fFrom = bFirst ? fRow[i] : fRow[tLast];
        const std::size_t tFrom = bFirst ? 0 : tLast + 1;
        const float fStep = bFirst ? 0 : (fRow[i] - fFrom) / float(i - tLast);
        for (std::size_t k = tFrom; k < i; ++k) fRow[k] = fFrom + float(k + 1 - tFrom) * fStep;
        tLast = i;
    }
    if (tLast == fRow.size()) return false;
    std::fill(fRow.begin() + std::ptrdiff_t(tLast), fRow.end(), fRow[tLast]);
    return true;
}

}  // namespace talven
