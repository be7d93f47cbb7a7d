#pragma once

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "talven/Memory.h"
#include "talven/ViewAlignment.h"

namespace talven::python
{

/// Shapes as Python counts them: rows first, sections before rows.
using Shape2 = std::pair<int, int>;        ///< y, x
using Shape3 = std::array<int, 3>;         ///< z, y, x
using MapNumbers = std::array<double, 6>;  ///< A11 A12 A21 A22 DX DY, see ViewMap

inline ImageSize FromShape(const Shape2& rShape)
{
    return {rShape.second, rShape.first};
}
inline Shape2 ToShape(const ImageSize& rSize)
{
    return {rSize.iY, rSize.iX};
}
inline ViewMap FromNumbers(const MapNumbers& r)
{
    return {r[0], r[1], r[2], r[3], r[4], r[5]};
}
inline MapNumbers ToNumbers(const ViewMap& r)
{
    return {r.dA11, r.dA12, r.dA21, r.dA22, r.dX, r.dY};
}
template <class From, class F>
auto Convert(const std::vector<From>& rFrom, const F& rOne)
{
    std::vector<decltype(rOne(rFrom[0]))> aTo;
    aTo.reserve(rFrom.size());
    for (const From& r : rFrom) aTo.push_back(rOne(r));
    return aTo;
}

}  // namespace talven::python
