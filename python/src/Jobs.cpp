#include <nanobind/stl/array.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/pair.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/vector.h>

#include "Casts.h"
#include "Images.h"
#include "Session.h"
#include "talven/ImageJob.h"
#include "talven/Reconstruction.h"
#include "talven/SeriesAlign.h"

namespace nb = nanobind;
using namespace nb::literals;

namespace talven::python
{
namespace
{

ServerOptions MakeOptions(const std::string& strServer, int iDevices, int iCores,
                          const std::string& strBackend, const std::string& strProgram)
{
    ServerOptions aOptions;
    aOptions.strServer = strServer;
    aOptions.iDevices = iDevices;
    aOptions.iCores = iCores;
    aOptions.strBackend = strBackend;
    aOptions.strProgram = strProgram;
    return aOptions;
}

std::uint64_t GetMemory(CPySession& rSession)
{
    std::uint64_t ulBytes = 0;
    CServerLink& rLink = rSession.GetLink();
    rSession.Do(
        nb::none(), [&](std::string& rError)
        { return rLink.GetSession().GetServerMemory(ulBytes) || Fail(rError, rLink.Explain()); });
    return ulBytes;
}

/// A reconstruction, step by step.
class CPyReconstruction
{
public:
    explicit CPyReconstruction(CPySession& rSession)
        : m_rSession(rSession), m_aJob(rSession.GetLink(), rSession.GetMonitor())
    {
    }

    void Upload(const ReconPlan& rPlan, const nb::object& rViews, const nb::object& rInitial,
                const nb::object& rProgress)
    {
        const ImageSize aView = {rPlan.aSize.iProjX, rPlan.aSize.iProjY};
        const ImageSource Views =
            ReadBy(rViews, rPlan.aAlignment.IsNone() ? aView : rPlan.aAlignment.aRaw,
                   m_rSession.GetCaught());
        mRemember(rPlan);
        m_rSession.DoStep(rProgress, m_aJob,
                          [&] { return m_aJob.Upload(rPlan, Views, mReadSlices(rInitial)); });
    }
    void Restart(const ReconPlan& rPlan, const nb::object& rInitial, const nb::object& rProgress)
    {
        mRemember(rPlan);
        m_rSession.DoStep(rProgress, m_aJob,
                          [&] { return m_aJob.Restart(rPlan, mReadSlices(rInitial)); });
    }
    void Run(const nb::object& rProgress)
    {
        m_rSession.DoStep(rProgress, m_aJob, [&] { return m_aJob.Run(); });
    }
    void Download(const nb::object& rSlices, const nb::object& rProgress)
    {
        const ImageSink Slices = WriteBy(rSlices, m_aResult, m_rSession.GetCaught());
        m_rSession.DoStep(rProgress, m_aJob, [&] { return m_aJob.Download(Slices); });
    }
    const std::vector<double>& GetRfactors() const { return m_aJob.GetRfactors(); }
    const std::vector<double>& GetViewResiduals() const { return m_aJob.GetViewResiduals(); }
    /// [iteration][view]: sum of |measured - reprojected|, sum of |measured|.
    std::vector<std::vector<std::pair<float, float>>> GetSums() const
    {
        const auto One = [](const RfactorSums& r) { return std::pair(r.fDifference, r.fRaw); };
        return Convert(m_aJob.GetSums(), [&](const auto& rViews) { return Convert(rViews, One); });
    }
    std::uint64_t GetCutVoxels() const { return m_aJob.GetCutVoxels(); }

private:
    void mRemember(const ReconPlan& rPlan)
    {
        m_aSlice = {rPlan.aSize.iVolX, rPlan.aSize.iProjY};
        m_aResult = {rPlan.aSize.iVolX, rPlan.aRows.GetCount()};
    }
    ImageSource mReadSlices(const nb::object& rRead)
    {
        return rRead.is_none() ? ImageSource() : ReadBy(rRead, m_aSlice, m_rSession.GetCaught());
    }

    CPySession& m_rSession;
    CReconstruction m_aJob;
    ImageSize m_aSlice, m_aResult;  // of the server's volume and of ours
};

void Reproject(CPySession& rSession, const Shape3& rVolume, int iWidth,
               const std::vector<float>& vfAngles, const nb::object& rSlices,
               const nb::object& rProjs, const nb::object& rProgress)
{
    const JobSize aSize = {iWidth, rVolume[1], static_cast<int>(vfAngles.size()), rVolume[2],
                           rVolume[0]};
    CReprojection aJob(rSession.GetLink(), rSession.GetMonitor());
    const ImageSource Slices = ReadBy(rSlices, {rVolume[2], rVolume[1]}, rSession.GetCaught());
    const ImageSink Projs = WriteBy(rProjs, {iWidth, rVolume[1]}, rSession.GetCaught());
    rSession.DoStep(rProgress, aJob, [&] { return aJob.Run(aSize, vfAngles, Slices, Projs); });
}

/// Maps and compares images.
class CPyImageJob
{
public:
    CPyImageJob(CPySession& rSession, const Shape2& rMeasured, const Shape2& rAligned)
        : m_rSession(rSession),
          m_aJob(rSession.GetLink(), rSession.GetMonitor()),
          m_aAligned(FromShape(rAligned))
    {
        m_rSession.DoStep(nb::none(), m_aJob,
                          [&] { return m_aJob.Open(FromShape(rMeasured), m_aAligned); });
    }

    void Transform(const ConstImage& rMeasured, const Affine& rMap, const IntensityScale& rScale,
                   const Image& rAligned)
    {
        std::vector<float> vfMeasured(rMeasured.data(), rMeasured.data() + rMeasured.size());
        if (!MarkMissing(vfMeasured)) Raise("ValueError", "an image has an infinite value");
        std::vector<float> vfAligned;
        m_rSession.DoStep(nb::none(), m_aJob,
                          [&] { return m_aJob.Transform(vfMeasured, rMap, rScale, vfAligned); });
        MarkNan(vfAligned);
        std::copy(vfAligned.begin(), vfAligned.end(), rAligned.data());
    }

    ShiftMatch Compare(const ConstImage& rMeasured, const ConstImage& rAligned, const Affine& rMap,
                       const IntensityScale& rScale, int iRange, const std::string& strName)
    {
        std::vector<float> vfMeasured(rMeasured.data(), rMeasured.data() + rMeasured.size());
        std::vector<float> vfAligned(rAligned.data(), rAligned.data() + rAligned.size());
        if (!MarkMissing(vfMeasured) || !MarkMissing(vfAligned))
            Raise("ValueError", strName + " has an infinite value");
        ShiftMatch aMatch;
        const auto Map = [&rMap](double dX, double dY) { return Shift(rMap, dX, dY); };
        m_rSession.DoStep(nb::none(), m_aJob,
                          [&]
                          {
                              return m_aJob.Load(vfMeasured, vfAligned, rScale) &&
                                     m_aJob.Compare(strName, Map, iRange, aMatch);
                          });
        return aMatch;
    }

private:
    CPySession& m_rSession;
    CImageJob m_aJob;
    ImageSize m_aAligned;
};

SeriesAlignment Align(CPySession& rSession, const SeriesAlignRequest& rRequest, const Shape2& rRaw,
                      const std::vector<float>& vfAngles, const nb::object& rViews,
                      const nb::object& rProgress)
{
    CSeriesAligner aAligner(rSession.GetLink(), rSession.GetMonitor());
    const ImageSource Views = ReadBy(rViews, FromShape(rRaw), rSession.GetCaught());
    SeriesAlignment aResult;
    rSession.DoStep(rProgress, aAligner,
                    [&]
                    { return aAligner.Run(rRequest, FromShape(rRaw), vfAngles, Views, aResult); });
    return aResult;
}

void BindSession(nb::module_& m)
{
    nb::class_<CPySession>(m, "Session")
        .def(
            "__init__",
            [](CPySession* p, const std::string& strServer, int iDevices, int iCores,
               const std::string& strBackend, const std::string& strProgram) {
                new (p)
                    CPySession(MakeOptions(strServer, iDevices, iCores, strBackend, strProgram));
            },
            "server"_a, "devices"_a, "cores"_a, "backend"_a, "program"_a)
        .def("connect", &CPySession::Connect, "progress"_a.none(), "timeout"_a.none())
        .def("close", &CPySession::Close, nb::call_guard<nb::gil_scoped_release>())
        .def_prop_ro("is_open", &CPySession::IsOpen)
        .def_prop_ro("info", &CPySession::GetServerInfo)
        .def_prop_ro("expected_devices",
                     [](const CPySession& r) { return r.GetOptions().EstimateDevices(); })
        .def("memory", GetMemory, "Bytes of device memory that jobs may use.")
        .def("reproject", Reproject, "volume_shape"_a, "width"_a, "angles"_a, "read"_a, "write"_a,
             "progress"_a.none())
        .def("align", Align, "request"_a, "raw_shape"_a, "angles"_a, "read"_a, "progress"_a.none());
}

void BindSteps(nb::module_& m)
{
    nb::class_<CPyReconstruction>(m, "Reconstruction")
        .def(nb::init<CPySession&>(), nb::keep_alive<1, 2>(), "session"_a)
        .def("upload", &CPyReconstruction::Upload, "plan"_a, "read"_a, "initial"_a.none(),
             "progress"_a.none())
        .def("restart", &CPyReconstruction::Restart, "plan"_a, "initial"_a.none(),
             "progress"_a.none())
        .def("run", &CPyReconstruction::Run, "progress"_a.none())
        .def("download", &CPyReconstruction::Download, "write"_a, "progress"_a.none())
        .def_prop_ro("rfactors", &CPyReconstruction::GetRfactors)
        .def_prop_ro("view_residuals", &CPyReconstruction::GetViewResiduals)
        .def_prop_ro("rfactor_sums", &CPyReconstruction::GetSums)
        .def_prop_ro("cut_voxels", &CPyReconstruction::GetCutVoxels);
    nb::class_<CPyImageJob>(m, "ImageJob")
        .def(nb::init<CPySession&, const Shape2&, const Shape2&>(), nb::keep_alive<1, 2>(),
             "session"_a, "measured"_a, "aligned"_a)
        .def("transform", &CPyImageJob::Transform, "measured"_a, "map"_a, "scale"_a, "out"_a)
        .def("compare", &CPyImageJob::Compare, "measured"_a, "aligned"_a, "map"_a, "scale"_a,
             "search"_a, "name"_a);
}

void BindResults(nb::module_& m)
{
    nb::class_<ShiftMatch>(m, "ShiftMatch")
        .def_prop_ro("shift", [](const ShiftMatch& r) { return std::pair(r.dX, r.dY); })
        .def_ro("correlation", &ShiftMatch::dCorrelation)
        .def_prop_ro("mean_difference",
                     [](const ShiftMatch& r) { return CalcMeanDifference(r.aSums); })
        .def_prop_ro("pixels", [](const ShiftMatch& r) { return r.aSums.fCount; })
        .def_ro("at_edge", &ShiftMatch::bAtEdge);
    nb::class_<SeriesAlignment>(m, "SeriesAlignment")
        .def_prop_ro("tilt_axis", [](const SeriesAlignment& r) { return r.aPlaces.dTiltAxis; })
        .def_prop_ro("tilt_axis_uncertainty",
                     [](const SeriesAlignment& r) {
                         return r.aAxis.bFlat ? std::optional<double>()
                                              : std::optional(r.aAxis.dUncertainty);
                     })
        .def_prop_ro("maps", [](const SeriesAlignment& r)
                     { return Convert(r.aPlaces.MakeMaps(), ToNumbers); })
        .def_prop_ro("correlations",
                     [](const SeriesAlignment& r) {
                         return Convert(r.aViews, [](const AlignedView& rView)
                                        { return rView.aMatch.dCorrelation; });
                     })
        .def_prop_ro("left_out", &SeriesAlignment::ListLeftOut)
        .def_ro("correlation", &SeriesAlignment::dCorrelation)
        .def_ro("still_wanted", &SeriesAlignment::dWanted)
        .def_ro("warnings", &SeriesAlignment::astrWarnings);
}

}  // namespace

void BindJobs(nb::module_& rModule)
{
    BindResults(rModule);
    BindSession(rModule);
    BindSteps(rModule);
}

}  // namespace talven::python
