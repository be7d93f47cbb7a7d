#include "talven/Slices.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace talven
{

void CSlices::Want(char cAxis, int iAt)
{
    const ImageSize aSize = GetSliceSize(cAxis);
    Slice aSlice = {cAxis, iAt, aSize.iX, aSize.iY, std::vector<float>(aSize.GetPixels())};
    m_aSlices.push_back(std::move(aSlice));
}

void CSlices::WantCentral()
{
    for (const char cAxis : {'z', 'x', 'y'}) Want(cAxis, GetExtent(cAxis) / 2);
}

bool CSlices::Needs(int iZ) const
{
    return std::any_of(m_aSlices.begin(), m_aSlices.end(),
                       [iZ](const Slice& rSlice)
                       { return rSlice.cAxis != 'z' || rSlice.iAt == iZ; });
}

void CSlices::Add(int iZ, std::span<const float> fSection)
{
    const auto tX = static_cast<std::size_t>(m_iX);
    const auto tZ = static_cast<std::size_t>(iZ);
    for (Slice& rSlice : m_aSlices)
    {
        const auto tAt = static_cast<std::size_t>(rSlice.iAt);
        if (rSlice.cAxis == 'x')
            for (std::size_t y = 0; y < std::size_t(m_iY); ++y)
                rSlice.vfPixels[y * std::size_t(m_iZ) + tZ] = fSection[y * tX + tAt];
        else if (rSlice.cAxis == 'y')
            std::copy_n(fSection.data() + tAt * tX, tX, rSlice.vfPixels.data() + tZ * tX);
        else if (rSlice.iAt == iZ)
            rSlice.vfPixels.assign(fSection.begin(), fSection.end());
    }
}

Percentiles FindPercentiles(std::span<const Slice> aSlices, double dLowPercent, double dHighPercent)
{
    std::vector<float> vfAll;
    for (const Slice& rSlice : aSlices)
        std::copy_if(rSlice.vfPixels.begin(), rSlice.vfPixels.end(), std::back_inserter(vfAll),
                     [](float fPixel) { return std::isfinite(fPixel) && !IsMissing(fPixel); });
    if (vfAll.empty()) return {};
    const auto Find = [&vfAll](double dPercent)
    {
        const auto pNth =
            vfAll.begin() + static_cast<std::ptrdiff_t>(dPercent / 100 * double(vfAll.size() - 1));
        std::nth_element(vfAll.begin(), pNth, vfAll.end());
        return *pNth;
    };
    const float fLow = Find(dLowPercent);
    return {fLow, Find(dHighPercent)};
}

}  // namespace talven
