#pragma once

#include <cstddef>
#include <string>

/// What the selected device can do at most, measured.
struct Ceilings
{
    double dFilterFetches = 0;  ///< bilinear reads of a layered texture, per second
    double dPointFetches = 0;   ///< reads of its single texels
    double dCopy = 0;           ///< bytes per second, read and written, within the device
    double dToDevice = 0;       ///< bytes per second from pinned memory
    double dToHost = 0;
};

/// \param tBytes    of the copies
/// \param iRepeats  the best one counts
/// \return false with the reason noted
[[nodiscard]] bool MeasureCopies(std::size_t tBytes, int iRepeats, Ceilings& rCeilings);

/// Reads every texel of an image of iWidth x iHeight texels and iLanes rows of a batch, as a
/// projector of iTilts projections without arithmetic would: neighbouring threads at neighbouring
/// columns, each down its column. Filtered or not as the backend in use makes its arrays.
/// \return reads per second, NaN with the reason noted when the device refuses
double MeasureFetches(int iWidth, int iHeight, int iTilts, int iLanes, int iRepeats);

/// Name, memory, multiprocessors, versions of driver and runtime of the selected device.
std::string DescribeDevice();
