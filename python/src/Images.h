#pragma once

#include <nanobind/nanobind.h>
#include <nanobind/ndarray.h>

#include <span>

#include "Errors.h"
#include "talven/ServerJob.h"

namespace talven::python
{

/// float32, rows without gaps.
using Image = nanobind::ndarray<nanobind::numpy, float, nanobind::ndim<2>, nanobind::c_contig>;
using ConstImage =
    nanobind::ndarray<nanobind::numpy, const float, nanobind::ndim<2>, nanobind::c_contig>;

/// numpy's view of pixels that stay ours. With the GIL.
nanobind::object ShowImage(std::span<const float> fPixels, const ImageSize& rSize);
nanobind::object ShowImage(std::span<float> fPixels, const ImageSize& rSize);

inline ImageSize GetSize(const ConstImage& rImage)
{
    return {static_cast<int>(rImage.shape(1)), static_cast<int>(rImage.shape(0))};
}
inline std::span<const float> GetPixels(const ConstImage& rImage)
{
    return {rImage.data(), rImage.size()};
}

/// NaN, no data in Python, becomes a missing pixel. \return false when a value is infinite
[[nodiscard]] bool MarkMissing(std::span<float> fPixels);
/// And back.
void MarkNan(std::span<float> fPixels);

/// Images that aRead(i, image) fills in: a float32 array, shape (y, x). Borrowed: no thread without
/// the GIL may count references.
ImageSource ReadBy(nanobind::handle aRead, const ImageSize& rSize, CCaught& rCaught);
/// Images that aWrite(i, image) takes; missing pixels are NaN. The array lives as long as the call.
ImageSink WriteBy(nanobind::handle aWrite, const ImageSize& rSize, CCaught& rCaught);

}  // namespace talven::python
