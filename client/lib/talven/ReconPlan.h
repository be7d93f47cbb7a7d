#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "talven/Memory.h"
#include "talven/RowFilter.h"
#include "talven/RowRange.h"
#include "talven/Schedule.h"
#include "talven/Session.h"
#include "talven/ViewAlignment.h"

namespace talven
{

/// What a reconstruction is asked to do; the members have their defaults.
struct ReconRequest
{
    int iThickness = 0;             ///< of the volume along Z, voxels
    int iWidth = 0;                 ///< along X, voxels; 0: the detector's
    std::optional<RowRange> aRows;  ///< of the volume that are made; none: all
    int iHalo = -1;  ///< more rows on either side, for smoothing; -1: as many as it takes
    EMethod eMethod = EMethod::eSart;
    int iIterations = 10;
    int iSubsets = 0;                           ///< 0: about one per six projections
    std::vector<std::uint32_t> vuiSubsetSizes;  ///< empty: as equal as can be
    Relaxation aRelax;
    bool bInterleave = true;     ///< subsets spread over the tilt range
    std::vector<int> viInclude;  ///< views from 0, ascending; empty: all
    std::vector<int> viExclude;  ///< views from 0, ascending
    std::optional<WeightBox> aBox;
    double dSmoothSigma = 0;      ///< voxels; 0: no smoothing
    int iSmoothInterval = 1;      ///< iterations between smoothings
    bool bUnconstrained = false;  ///< voxels of SART may fall below 0
    bool bFilter = false;         ///< filters the rows: a weighted back projection
    FilterRequest aFilter;
    AlignRequest aAlign;
    double dAngleOffset = 0;  ///< added to all angles, degrees
    double dStopGain = 0;     ///< SART ends when an iteration lowers R by less than this share
    int iCheckpoint = 0;      ///< iterations of SART between checkpoints; 0: none
};

/// What a reconstruction will do, checked against its inputs before any server is asked.
struct ReconPlan
{
    JobSize aSize;                ///< on the server
    int iAllRows = 0;             ///< of the aligned views
    RowRange aRows;               ///< of the volume that comes back
    RowRange aSent;               ///< those and the halo: what the server gets
    int iThickness = 0;           ///< of the volume that comes back; the server's may be more
    std::vector<int> viViews;     ///< of the stack, those that take part
    std::vector<float> vfAngles;  ///< of those views, degrees
    ViewAlignment aAlignment;     ///< of those views
    double dTiltX = 0;            ///< by which the volume turns about X on its way back
    std::vector<std::uint32_t> vuiOrder;  ///< in which subsets are cut, indices into viViews
    ReconOptions aOptions;
    std::optional<FilterRequest> aFilter;
    bool bUnconstrained = false;  ///< voxels of SART may fall below 0
    int iSmoothInterval = 0;      ///< 0: no smoothing
    GaussianKernel aSmoothKernel;
    std::optional<WeightBox> aBox;
    double dStopGain = 0;
    int iCheckpoint = 0;

    JobSize GetResultSize() const;
    /// Whether the volume has some of the rows of the views.
    bool IsPart() const { return aSent.GetCount() < iAllRows; }
    /// Rows beside those of the result, on the larger side.
    int GetHalo() const;
    /// "SART, 10 iterations, 4 subsets". \param iIterations  that were run; 0: all
    std::string DescribeMethod(int iIterations = 0) const;
    /// The options of some iterations: a part of a job, when the volume carries over.
    ReconOptions GetIterations(int iFirst, int iCount) const;
};

/// The views of so many that take part, ascending from 0; none that are listed may lie beyond them.
std::vector<int> SelectViews(const ReconRequest& rRequest, int iViews);

/// Leaves out some more of so many views. \param rViews  from 0, ascending
void LeaveOut(const std::vector<int>& rViews, int iViews, ReconRequest& rRequest);

/// \param rRaw     size of the views of the stack
/// \param fAngles  degrees, of all views of the stack
/// \return false when the request cannot be met; rError begins with the part of it that is wrong
///         ("subset-sizes: ..."), rPlan is of no use then.
[[nodiscard]] bool MakeReconPlan(const ReconRequest& rRequest, const ImageSize& rRaw,
                                 std::span<const float> fAngles, ReconPlan& rPlan,
                                 std::string& rError);

/// The plan for every second view of another plan, in the order of their angles, on that plan's
/// stack: the volumes of two halves have no noise in common.
/// \param iHalf        0: the odd ones, the first, the third...; 1: the even ones
/// \param iIterations  that were run for the whole
[[nodiscard]] bool MakeHalfPlan(const ReconRequest& rRequest, const ReconPlan& rPlan, int iHalf,
                                int iIterations, ReconPlan& rHalf, std::string& rError);

}  // namespace talven
