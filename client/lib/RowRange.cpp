#include "talven/RowRange.h"

#include <algorithm>
#include <vector>

namespace talven
{

ImageSource CutRows(ImageSource Images, const ImageSize& rWhole, const RowRange& rRows)
{
    return [Images = std::move(Images), rWhole, rRows,
            vfWhole = std::vector<float>(rWhole.GetPixels())](int i, std::span<float> fRows,
                                                              std::string& rError) mutable
    {
        if (!Images(i, vfWhole, rError)) return false;
        std::ranges::copy(rRows.Of(std::span<const float>(vfWhole), rWhole.iX), fRows.begin());
        return true;
    };
}

}  // namespace talven
