#pragma once

#include "talven/ServerJob.h"

namespace talven
{

/// Rows iFirst to iEnd - 1 of images, from 0.
struct RowRange
{
    int iFirst = 0, iEnd = 0;

    int GetCount() const { return iEnd - iFirst; }
    bool operator==(const RowRange&) const = default;
    /// The rows of an image [y][iColumns].
    template <class T>
    std::span<T> Of(std::span<T> tImage, int iColumns) const
    {
        return tImage.subspan(std::size_t(iFirst) * std::size_t(iColumns),
                              std::size_t(GetCount()) * std::size_t(iColumns));
    }
};

/// Some rows of the images of a source that gives whole ones of a size. Both are copied.
ImageSource CutRows(ImageSource Images, const ImageSize& rWhole, const RowRange& rRows);

}  // namespace talven
