#pragma once

#include <array>

#include "Util/Util_Volume.h"
#include "gpulib/Device/GCompare.h"

/// A comparison of two square projections.
struct CompareScene
{
    int iX, iY;
    Util_Volume aMeasured, aAligned;
    std::array<float, 6> afMatrix;
    std::array<float, 6> afScale = {1.5f, 0.5f, 2.5f, 0, 0, 0};

    /// \param fDegrees  rotation besides a shift
    explicit CompareScene(float fDegrees, int iSize = 1024);
};

/// The formulas written down as they stand: one pixel after another, nine sums in floats.
void LiteralCompare(const CompareScene& rScene, CompareTotals& rTotals);

/// The same by the library, all memory included, on the backend in use.
[[nodiscard]] bool RunCompare(CompareScene& rScene, CompareTotals& rTotals);
