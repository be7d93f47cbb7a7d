#include "Images.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <vector>

#include "talven/Text.h"

namespace nb = nanobind;

namespace talven::python
{
namespace
{

template <class T>
nb::object Show(std::span<T> fPixels, const ImageSize& rSize)
{
    const std::array<std::size_t, 2> atShape = {std::size_t(rSize.iY), std::size_t(rSize.iX)};
    const nb::ndarray<nb::numpy, T> aArray(fPixels.data(), 2, atShape.data(), nb::handle());
    return nb::cast(aArray, nb::rv_policy::reference);
}

}  // namespace

nb::object ShowImage(std::span<const float> fPixels, const ImageSize& rSize)
{
    return Show(fPixels, rSize);
}

nb::object ShowImage(std::span<float> fPixels, const ImageSize& rSize)
{
    return Show(fPixels, rSize);
}

bool MarkMissing(std::span<float> fPixels)
{
    bool bInfinite = false;
    for (float& rPixel : fPixels)
    {
        bInfinite = bInfinite || std::isinf(rPixel);
        if (std::isnan(rPixel)) rPixel = g_fMissing;
    }
    return !bInfinite;
}

void MarkNan(std::span<float> fPixels)
{
    std::replace_if(fPixels.begin(), fPixels.end(), IsMissing,
                    std::numeric_limits<float>::quiet_NaN());
}

ImageSource ReadBy(nb::handle aRead, const ImageSize& rSize, CCaught& rCaught)
{
    return [aRead, rSize, &rCaught](int i, std::span<float> fPixels, std::string& rError)
    {
        const auto Read = [&]
        {
            aRead(i, ShowImage(fPixels, rSize));
            if (!MarkMissing(fPixels))
                Raise("ValueError", Format("image %d has an infinite value", i));
        };
        return rCaught.Guard(Read) || Fail(rError, "an exception in Python");
    };
}

ImageSink WriteBy(nb::handle aWrite, const ImageSize& rSize, CCaught& rCaught)
{
    return [aWrite, rSize, &rCaught, vfPixels = std::vector<float>()](
               int i, std::span<const float> fPixels, std::string& rError) mutable
    {
        const bool bMissing = std::any_of(fPixels.begin(), fPixels.end(), IsMissing);
        if (bMissing)
        {
            vfPixels.assign(fPixels.begin(), fPixels.end());
            MarkNan(vfPixels);
        }
        const std::span<const float> fShown = bMissing ? vfPixels : fPixels;
        return rCaught.Guard([&] { aWrite(i, ShowImage(fShown, rSize)); }) ||
               Fail(rError, "an exception in Python");
    };
}

}  // namespace talven::python
