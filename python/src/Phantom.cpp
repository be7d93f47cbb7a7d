#include "talven/Phantom.h"

#include <nanobind/stl/string.h>
#include <nanobind/stl/vector.h>

#include "Errors.h"
#include "Files.h"
#include "Images.h"

namespace nb = nanobind;
using namespace nb::literals;

namespace talven::python
{
namespace
{

using Stack = nb::ndarray<nb::numpy, float, nb::ndim<3>, nb::c_contig>;

std::span<float> GetImage(const Stack& rStack, std::size_t t)
{
    const std::size_t tPixels = rStack.shape(1) * rStack.shape(2);
    return {rStack.data() + t * tPixels, tPixels};
}

/// A specimen and what a detector sees of it.
void MakePhantom(const Stack& rTilts, const std::vector<float>& vfAngles, const Stack& rTruth,
                 int iBeads, double dNoise, double dDose, std::uint64_t ulSeed)
{
    const auto [tZ, tY, tX] = std::tuple(rTruth.shape(0), rTruth.shape(1), rTruth.shape(2));
    if (rTilts.shape(0) != vfAngles.size() || rTilts.shape(1) != tY || rTilts.shape(2) != tX)
        Raise("ValueError", "the stack does not have the rows and columns of the volume");
    const CPhantomModel aModel(int(tX), int(tY), int(tZ), iBeads, ulSeed);
    CDetector aDetector(aModel, vfAngles, dNoise, dDose, ulSeed);
    CCaught aCaught;
    const nb::gil_scoped_release aFree;
    const auto Look = []
    {
        if (PyErr_CheckSignals() != 0) throw nb::python_error();
    };
    bool bGoOn = true;
    for (std::size_t t = 0; bGoOn && t < vfAngles.size(); ++t)
    {
        aDetector.Record(vfAngles[t], GetImage(rTilts, t));
        bGoOn = aCaught.Guard(Look);
    }
    for (std::size_t t = 0; bGoOn && t < tZ; ++t)
    {
        aModel.MakeSection(int(t), GetImage(rTruth, t));
        bGoOn = aCaught.Guard(Look);
    }
    const nb::gil_scoped_acquire aHeld;
    aCaught.Rethrow();
}

}  // namespace

void BindPhantom(nb::module_& rModule)
{
    rModule.def("make_phantom", MakePhantom, "tilts"_a, "angles"_a, "truth"_a, "beads"_a, "noise"_a,
                "dose"_a, "seed"_a);
}

}  // namespace talven::python
