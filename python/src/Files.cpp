#include "Files.h"

#include <nanobind/stl/array.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/pair.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/unique_ptr.h>
#include <nanobind/stl/vector.h>

#include "Casts.h"
#include "Errors.h"
#include "Images.h"
#include "talven/Angles.h"
#include "talven/HeaderAngles.h"
#include "talven/ImageStack.h"
#include "talven/Mdoc.h"
#include "talven/VolumeFile.h"

namespace nb = nanobind;
using namespace nb::literals;

namespace talven::python
{
namespace
{

/// Raises OSError for a file that cannot be read or written.
void Check(bool bDone, const std::string& strError)
{
    if (!bDone) Raise("OSError", strError);
}

/// The rows from iFirst on that the image has room for.
void Read(CImageStack& rStack, int iSection, int iFirst, const Image& rImage)
{
    if (iSection < 0 || iSection >= rStack.GetSections()) Raise("IndexError", "no such image");
    if (rImage.shape(1) != std::size_t(rStack.GetSize().iX))
        Raise("ValueError", "the image has another width");
    bool bDone = false;
    {
        const nb::gil_scoped_release aFree;
        const std::span<float> fPixels(rImage.data(), rImage.size());
        bDone = rStack.ReadRows(iSection, iFirst, fPixels);
        MarkNan(fPixels);
    }
    Check(bDone, rStack.GetError());
}

/// The angles that the file itself has; empty: none.
std::vector<float> ReadAnglesOf(CImageStack& rStack)
{
    std::vector<float> vfAngles;
    std::string strWhyNot;
    Check(rStack.ReadAngles(vfAngles), rStack.GetError());
    if (vfAngles.empty()) (void)ReadHeaderAngles(rStack.GetPath(), vfAngles, strWhyNot);
    return vfAngles;
}

void BindStack(nb::module_& m)
{
    nb::class_<CImageStack>(m, "Stack")
        .def_prop_ro("shape", [](const CImageStack& r)
                     { return std::tuple(r.GetSections(), r.GetSize().iY, r.GetSize().iX); })
        .def_prop_ro("pixel_size", &CImageStack::GetPixel)
        .def("read", Read, "section"_a, "first_row"_a, "out"_a)
        .def("angles", ReadAnglesOf);
    m.def(
        "open_stack",
        [](const std::string& strPath)
        {
            std::string strError;
            std::unique_ptr<CImageStack> pStack = OpenStack(strPath, strError);
            Check(pStack != nullptr, strError);
            return pStack;
        },
        "path"_a);
}

/// An MRC file in the making.
class CPyVolumeFile
{
public:
    CPyVolumeFile(const std::string& strPath, const Shape3& rShape, double dPixel,
                  const std::string& strLabel)
        : m_aSize{rShape[2], rShape[1]}
    {
        const JobSize aSize = {rShape[2], rShape[1], 1, rShape[2], rShape[0]};
        Check(m_aFile.Create(strPath, VolumeForm{}, aSize, dPixel, strLabel), m_aFile.GetError());
    }
    void Write(int iZ, const ConstImage& rSlice)
    {
        if (GetSize(rSlice).iX != m_aSize.iX || GetSize(rSlice).iY != m_aSize.iY)
            Raise("ValueError", "the slice has another shape");
        bool bDone = false;
        {
            const nb::gil_scoped_release aFree;
            bDone = m_aFile.WriteSlice(iZ, GetPixels(rSlice));
        }
        Check(bDone, m_aFile.GetError());
    }
    void Finish() { Check(m_aFile.Finish(), m_aFile.GetError()); }

private:
    CVolumeFile m_aFile;
    ImageSize m_aSize;
};

/// What an .mdoc says about so many views: angles, doses before each and of each, views without a
/// section, pixel size, tilt axis.
nb::dict ReadMdocOf(const std::string& strPath, int iViews)
{
    Mdoc aMdoc;
    MdocViews aViews;
    std::string strError;
    Check(ReadMdoc(strPath, aMdoc, strError), strError);
    if (!FitToStack(aMdoc, iViews, aViews, strError)) Raise("ValueError", strError);
    nb::dict aResult;
    aResult["angles"] = nb::cast(aViews.vfAngles);
    aResult["prior_doses"] =
        nb::cast(Convert(aViews.aDoses, [](const ViewDose& r) { return r.dPrior; }));
    aResult["doses"] =
        nb::cast(Convert(aViews.aDoses, [](const ViewDose& r) { return r.dExposure; }));
    aResult["missing"] = nb::cast(aViews.viMissing);
    aResult["pixel_size"] = nb::cast(aMdoc.dPixel);
    aResult["tilt_axis"] = nb::cast(aMdoc.dTiltAxis);
    return aResult;
}

void BindTexts(nb::module_& m)
{
    m.def("read_mdoc", ReadMdocOf, "path"_a, "views"_a,
          nb::sig("def read_mdoc(path: str, views: int) -> dict[str, typing.Any]"));
    m.def(
        "read_angles",
        [](const std::string& strPath)
        {
            std::vector<float> vfAngles;
            std::string strError;
            Check(ReadAngles(strPath, vfAngles, strError), strError);
            return vfAngles;
        },
        "path"_a);
    m.def(
        "check_degrees",
        [](const std::vector<float>& vfAngles)
        {
            std::string strError;
            if (!CheckDegrees(vfAngles, strError)) Raise("ValueError", "angles: " + strError);
        },
        "angles"_a, "ValueError for what looks like radians.");
    m.def(
        "write_angles",
        [](const std::string& strPath, const std::vector<float>& vfAngles)
        {
            std::string strError;
            Check(WriteAngles(strPath, vfAngles, strError), strError);
        },
        "path"_a, "angles"_a);
    m.def(
        "read_xf",
        [](const std::string& strPath)
        {
            std::vector<ViewMap> aMaps;
            std::string strError;
            Check(ReadXf(strPath, aMaps, strError), strError);
            return Convert(aMaps, ToNumbers);
        },
        "path"_a);
    m.def(
        "write_xf",
        [](const std::string& strPath, const std::vector<MapNumbers>& aMaps)
        {
            std::string strError;
            Check(WriteXf(strPath, Convert(aMaps, FromNumbers), strError), strError);
        },
        "path"_a, "maps"_a);
    m.def(
        "round_as_xf",
        [](const std::vector<MapNumbers>& aMaps)
        {
            std::vector<ViewMap> aRounded = Convert(aMaps, FromNumbers);
            RoundAsXf(aRounded);
            return Convert(aRounded, ToNumbers);
        },
        "maps"_a);
    m.def(
        "turned", [](double dTiltAxis) { return ToNumbers(Turn(-dTiltAxis)); }, "tilt_axis"_a,
        "The map of a view whose tilt axis is brought to +Y.");
}

}  // namespace

void BindFiles(nb::module_& rModule)
{
    BindStack(rModule);
    nb::class_<CPyVolumeFile>(rModule, "VolumeFile")
        .def(nb::init<const std::string&, const Shape3&, double, const std::string&>(), "path"_a,
             "shape"_a, "pixel_size"_a, "label"_a)
        .def("write", &CPyVolumeFile::Write, "z"_a, "section"_a)
        .def("finish", &CPyVolumeFile::Finish);
    BindTexts(rModule);
}

}  // namespace talven::python
