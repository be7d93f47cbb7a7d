#include "Requests.h"

#include <nanobind/stl/array.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/pair.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/vector.h>

#include "Casts.h"
#include "Errors.h"
#include "Images.h"
#include "talven/ReconPlan.h"
#include "talven/SectionMaps.h"
#include "talven/SeriesAlign.h"

namespace nb = nanobind;
using namespace nb::literals;

namespace talven::python
{
namespace
{

using BoxNumbers = std::array<float, 4>;  // see WeightBox

std::optional<BoxNumbers> GetBox(const ReconRequest& r)
{
    if (!r.aBox) return {};
    return BoxNumbers{r.aBox->fCentreX, r.aBox->fCentreZ, r.aBox->fHalfX, r.aBox->fHalfZ};
}

void SetBox(ReconRequest& r, const std::optional<BoxNumbers>& aBox)
{
    r.aBox.reset();
    if (aBox) r.aBox = {(*aBox)[0], (*aBox)[1], (*aBox)[2], (*aBox)[3]};
}

void BindAlignRequest(nb::module_& m)
{
    nb::class_<AlignRequest>(m, "AlignRequest")
        .def(nb::init<>())
        .def_rw("tilt_axis", &AlignRequest::dTiltAxis)
        .def_rw("bin", &AlignRequest::iBin)
        .def_rw("shift_z", &AlignRequest::dShiftZ)
        .def_rw("x_tilt", &AlignRequest::dTiltX)
        .def_rw("centre", &AlignRequest::dCentre)
        .def_prop_rw(
            "maps", [](const AlignRequest& r) { return Convert(r.aMaps, ToNumbers); },
            [](AlignRequest& r, const std::vector<MapNumbers>& aMaps)
            { r.aMaps = Convert(aMaps, FromNumbers); })
        .def_prop_rw(
            "shape", [](const AlignRequest& r) { return ToShape(r.aSize); },
            [](AlignRequest& r, const Shape2& rShape) { r.aSize = FromShape(rShape); });
}

void BindFilter(nb::module_& m)
{
    nb::enum_<EWindow>(m, "Window")
        .value("RAMP", EWindow::eRamp)
        .value("SHEPP_LOGAN", EWindow::eSheppLogan)
        .value("COSINE", EWindow::eCosine)
        .value("HAMMING", EWindow::eHamming)
        .value("HANN", EWindow::eHann);
    nb::class_<FilterRequest>(m, "FilterRequest")
        .def(nb::init<>())
        .def_rw("window", &FilterRequest::eWindow)
        .def_rw("cutoff", &FilterRequest::dCutoff)
        .def_rw("falloff", &FilterRequest::dFalloff)
        .def_rw("sirt_like", &FilterRequest::iSirtLike);
}

void BindReconRequest(nb::module_& m)
{
    nb::enum_<EMethod>(m, "Method")
        .value("SART", EMethod::eSart)
        .value("EM", EMethod::eEm)
        .value("BACK_PROJECTION", EMethod::eBackProj);
    nb::class_<ReconRequest>(m, "ReconRequest")
        .def(nb::init<>())
        .def_rw("thickness", &ReconRequest::iThickness)
        .def_rw("width", &ReconRequest::iWidth)
        .def_rw("halo", &ReconRequest::iHalo)
        .def(
            "set_rows",
            [](ReconRequest& r, int iFirst, int iEnd) {
                r.aRows = {iFirst, iEnd};
            },
            "first"_a, "end"_a)
        .def_rw("method", &ReconRequest::eMethod)
        .def_rw("iterations", &ReconRequest::iIterations)
        .def_rw("subsets", &ReconRequest::iSubsets)
        .def_rw("subset_sizes", &ReconRequest::vuiSubsetSizes)
        .def_rw("interleave", &ReconRequest::bInterleave)
        .def_rw("include", &ReconRequest::viInclude)
        .def_rw("smooth_sigma", &ReconRequest::dSmoothSigma)
        .def_rw("smooth_interval", &ReconRequest::iSmoothInterval)
        .def_rw("unconstrained", &ReconRequest::bUnconstrained)
        .def_rw("filtered", &ReconRequest::bFilter)
        .def_rw("filter", &ReconRequest::aFilter)
        .def_rw("align", &ReconRequest::aAlign)
        .def_rw("angle_offset", &ReconRequest::dAngleOffset)
        .def_rw("stop_when", &ReconRequest::dStopGain)
        .def_prop_rw("weight_box", GetBox, SetBox, nb::arg().none())
        .def_prop_rw(
            "relaxation", [](const ReconRequest& r) { return r.aRelax.vdFactors; },
            [](ReconRequest& r, const std::vector<double>& vd) { r.aRelax.vdFactors = vd; });
}

ReconPlan Plan(const ReconRequest& rRequest, const Shape2& rRaw, const std::vector<float>& vfAngles)
{
    ReconPlan aPlan;
    std::string strError;
    if (!MakeReconPlan(rRequest, FromShape(rRaw), vfAngles, aPlan, strError))
        Raise("ValueError", strError);
    return aPlan;
}

ReconPlan PlanHalf(const ReconPlan& rPlan, const ReconRequest& rRequest, int iHalf, int iIterations)
{
    ReconPlan aHalf;
    std::string strError;
    if (!MakeHalfPlan(rRequest, rPlan, iHalf, iIterations, aHalf, strError))
        Raise("ValueError", strError);
    return aHalf;
}

void Check(const JobSize& rSize, bool bHere)
{
    std::string strError;
    if (!CheckJobSize(rSize, bHere, strError)) Raise("ValueError", strError);
}

void BindPlan(nb::module_& m)
{
    nb::class_<JobSize>(m, "JobSize")
        .def(
            "__init__",
            [](JobSize* p, const Shape3& rProjs, const Shape2& rVolume, bool bSmooth) {
                new (p) JobSize{rProjs[2],      rProjs[1],     rProjs[0],
                                rVolume.second, rVolume.first, bSmooth};
            },
            "projections"_a, "volume_zx"_a, "smooth"_a = false,
            "Projections (view, y, x) and a volume (z, x) of the same rows.")
        .def("memory", &JobSize::GetBytes, "devices"_a,
             "Bytes that a server with so many devices needs.")
        .def("check", Check, "here"_a,
             "ValueError beyond the limits of the protocol or, here, of this machine's memory.");
    nb::class_<ReconPlan>(m, "ReconPlan")
        .def_ro("size", &ReconPlan::aSize)
        .def_prop_ro("shape",
                     [](const ReconPlan& r)
                     {
                         const JobSize aSize = r.GetResultSize();
                         return std::tuple(aSize.iVolZ, aSize.iProjY, aSize.iVolX);
                     })
        .def_prop_ro("whole_shape",
                     [](const ReconPlan& r)
                     {
                         const JobSize aSize = r.GetResultSize();
                         return std::tuple(aSize.iVolZ, r.iAllRows, aSize.iVolX);
                     })
        .def_prop_ro("sent",
                     [](const ReconPlan& r) { return std::pair(r.aSent.iFirst, r.aSent.iEnd); })
        .def_prop_ro("is_part", &ReconPlan::IsPart)
        .def_prop_ro("aligns", [](const ReconPlan& r) { return !r.aAlignment.IsNone(); })
        .def_ro("views", &ReconPlan::viViews)
        .def_ro("angles", &ReconPlan::vfAngles)
        .def("describe", &ReconPlan::DescribeMethod, "iterations"_a = 0)
        .def("half", PlanHalf, "request"_a, "half"_a, "iterations"_a,
             "The plan of the odd (0) or even (1) views by angle.");
    m.def("make_plan", Plan, "request"_a, "raw_shape"_a, "angles"_a,
          "What a reconstruction of raw views (y, x) will do; ValueError when it cannot.");
}

nb::object Bin(const ConstImage& rImage, int iBin)
{
    if (iBin == 1) return nb::cast(rImage);
    const ImageSize aSize = GetSize(rImage), aBinned = {aSize.iX / iBin, aSize.iY / iBin};
    std::vector<float> vfPixels(GetPixels(rImage).begin(), GetPixels(rImage).end());
    std::vector<float> vfBinned(aBinned.GetPixels());
    (void)MarkMissing(vfPixels);
    BinImage(vfPixels, aSize, iBin, vfBinned);
    MarkNan(vfBinned);
    return ShowImage(std::span<float>(vfBinned), aBinned).attr("copy")();
}

void BindImages(nb::module_& m)
{
    nb::class_<IntensityScale>(m, "IntensityScale")
        .def(nb::init<>())
        .def_rw("gain", &IntensityScale::fGain)
        .def_rw("offset", &IntensityScale::fOffset)
        .def_rw("most", &IntensityScale::fMost)
        .def_rw("log", &IntensityScale::bLog)
        .def_rw("least", &IntensityScale::fLeast)
        .def_rw("factor", &IntensityScale::fFactor)
        .def_rw("beam", &IntensityScale::fBeam)
        .def_prop_ro("keeps_missing", KeepsMissing);
    nb::class_<ViewAlignment>(m, "ViewAlignment")
        .def_prop_ro("binned", [](const ViewAlignment& r) { return ToShape(r.aBinned); })
        .def_prop_ro("aligned", [](const ViewAlignment& r) { return ToShape(r.aAligned); })
        .def_ro("maps", &ViewAlignment::aMaps);
    m.def(
        "align_views",
        [](const AlignRequest& rRequest, const Shape2& rRaw, std::size_t tViews)
        {
            ViewAlignment aAlignment;
            std::string strError;
            if (!MakeViewAlignment(rRequest, FromShape(rRaw), std::vector<float>(tViews),
                                   aAlignment, strError))
                Raise("ValueError", strError);
            return aAlignment;
        },
        "request"_a, "raw_shape"_a, "views"_a,
        "How raw views (y, x) become aligned ones; ValueError when they cannot.");
    m.def("bin_image", Bin, "image"_a, "bin"_a,
          nb::sig("def bin_image(image: numpy.typing.NDArray[numpy.float32], bin: int) -> "
                  "numpy.typing.NDArray[numpy.float32]"),
          "Means of blocks.");
    m.def(
        "from_corners",
        [](const Affine& rMap, const Shape2& rAligned, const Shape2& rMeasured)
        { return CountFromCorners(rMap, FromShape(rAligned), FromShape(rMeasured)); },
        "map"_a, "aligned"_a, "measured"_a);
}

void BindSeriesAlignRequest(nb::module_& m)
{
    nb::enum_<EAxis>(m, "Axis")
        .value("ABOUT", EAxis::eAbout)
        .value("GIVEN", EAxis::eGiven)
        .value("UNKNOWN", EAxis::eUnknown);
    nb::class_<SeriesAlignRequest>(m, "SeriesAlignRequest")
        .def(nb::init<>())
        .def_rw("axis", &SeriesAlignRequest::eAxis)
        .def_rw("tilt_axis", &SeriesAlignRequest::dTiltAxis)
        .def_rw("thickness", &SeriesAlignRequest::iThickness)
        .def_rw("bins", &SeriesAlignRequest::viBins)
        .def_rw("limit", &SeriesAlignRequest::dLimit)
        .def_rw("isolated", &SeriesAlignRequest::bIsolated)
        .def_rw("dark", &SeriesAlignRequest::bDark)
        .def(
            "check",
            [](const SeriesAlignRequest& r, const Shape2& rRaw, const std::vector<float>& vfAngles)
            {
                std::string strError;
                if (!CheckSeriesAlign(r, FromShape(rRaw), vfAngles, strError))
                    Raise("ValueError", strError);
            },
            "raw_shape"_a, "angles"_a);
}

}  // namespace

void BindRequests(nb::module_& rModule)
{
    BindAlignRequest(rModule);
    BindFilter(rModule);
    BindReconRequest(rModule);
    BindPlan(rModule);
    BindImages(rModule);
    BindSeriesAlignRequest(rModule);
}

}  // namespace talven::python
