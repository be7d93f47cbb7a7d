#pragma once

#include <span>
#include <vector>

#include "talven/Memory.h"
#include "talven/ServerJob.h"

namespace talven
{

/// Turns a volume about X on its way from the server, so that a specimen that rises towards +Y
/// lies flat.
///
/// With sheared views the server's rows are planes across the beam's tilt axis, and its slices
/// follow the specimen: voxel (x, y, z) of the flat volume, from the centre, lies in row
/// y cos b - z sin b and slice z / cos b. Voxels that no row shows are 0.
class CVolumeTilt
{
public:
    /// Slices that the server needs for iZ slices of the flat volume.
    static int GetSlices(int iZ, double dDegrees);

    /// \param rFrom  size of the server's volume
    /// \param iZ     slices of the flat volume
    CVolumeTilt(double dDegrees, const JobSize& rFrom, int iZ);
    /// Takes the server's slices in order, shape [y][x], and gives those of the flat volume.
    [[nodiscard]] bool Take(int iSlice, std::span<const float> fSlice, const ImageSink& rSink,
                            std::string& rError);

private:
    void mMakeSlice(double dFraction);

    double m_dCos, m_dSin;
    int m_iX, m_iY, m_iFrom, m_iZ;
    int m_iNext = 0;                          // slice of the flat volume
    std::vector<float> m_vfBelow, m_vfAbove;  // the last two that came
    std::vector<float> m_vfFlat;
};

}  // namespace talven
