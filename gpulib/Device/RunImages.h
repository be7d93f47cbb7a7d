#pragma once

#include "gpulib/Device/DeviceImage.h"

/// Positions [iFirst, iEnd) of the projection index list: one set, or all.
struct SetRange
{
    int iFirst = 0, iEnd = 0;
};

/// The images that one run works on; KernelParams.h tells their sizes.
struct RunImages
{
    int iVolX = 0, iVolZ = 0;  ///< voxels of a slice, without its frame
    int iProjX = 0;            ///< detector columns
    // Of a batch of rows.
    DeviceImage aVol;       ///< slices, updated in place
    DeviceImage aRawProjs;  ///< measured rows
    DeviceImage aProjs;     ///< working rows
    DeviceImage aSums;      ///< ray sums of the slices
    // The same for all rows.
    DeviceImage aCosSin;
    DeviceImage aProjIndex;
    DeviceImage aRangeX;  ///< of the rows of the worker's band
    DeviceImage aPreWeight;
    DeviceImage aProjWeight;
};
