#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "talven/Memory.h"
#include "talven/Schedule.h"
#include "talven/Session.h"

namespace talven
{

/// What a reconstruction is asked to do; the members have their defaults.
struct ReconRequest
{
    int iThickness = 0;  ///< of the volume along Z, voxels
    int iWidth = 0;      ///< along X, voxels; 0: the detector's
    EMethod eMethod = EMethod::eSart;
    int iIterations = 10;
    int iSubsets = 0;                           ///< 0: about one per six projections
    std::vector<std::uint32_t> vuiSubsetSizes;  ///< empty: as equal as can be
    Relaxation aRelax;
    bool bInterleave = true;     ///< subsets spread over the tilt range
    std::vector<int> viInclude;  ///< views from 0, ascending; empty: all
    std::vector<int> viExclude;  ///< views from 0, ascending
    std::optional<WeightBox> aBox;
    double dSmoothSigma = 0;  ///< voxels; 0: no smoothing
    int iSmoothInterval = 1;  ///< iterations between smoothings
};

/// What a reconstruction will do, checked against its inputs before any server is asked.
struct ReconPlan
{
    JobSize aSize;
    std::vector<int> viViews;             ///< of the stack, those that take part
    std::vector<float> vfAngles;          ///< of those views, degrees
    std::vector<std::uint32_t> vuiOrder;  ///< in which subsets are cut, indices into viViews
    ReconOptions aOptions;
    int iSmoothInterval = 0;  ///< 0: no smoothing
    GaussianKernel aSmoothKernel;
    std::optional<WeightBox> aBox;

    /// "SART, 10 iterations, 4 subsets".
    std::string DescribeMethod() const;
};

/// \param iX, iY   of the projections
/// \param fAngles  degrees, of all views of the stack
/// \return false when the request cannot be met; rError begins with the part of it that is wrong
///         ("subset-sizes: ..."), rPlan is of no use then.
[[nodiscard]] bool MakeReconPlan(const ReconRequest& rRequest, int iX, int iY,
                                 std::span<const float> fAngles, ReconPlan& rPlan,
                                 std::string& rError);

}  // namespace talven
