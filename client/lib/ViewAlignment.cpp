#include "talven/ViewAlignment.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "talven/AtomicFile.h"
#include "talven/Text.h"

namespace talven
{
namespace
{

constexpr double g_dDegree = std::numbers::pi / 180;

double Centre(int iExtent)
{
    return 0.5 * (iExtent - 1);
}

/// The raw views as they lie, or on their sides when the maps turn them so.
ImageSize ChooseSize(const ImageSize& rBinned, const ViewMap& rMap)
{
    const bool bLies =
        std::fabs(rMap.dA12) + std::fabs(rMap.dA21) > std::fabs(rMap.dA11) + std::fabs(rMap.dA22);
    return bLies ? ImageSize{rBinned.iY, rBinned.iX} : rBinned;
}

/// From the centre of an aligned view, in raw pixels: what moves and lays flat the specimen.
ViewMap MakeSlide(const AlignRequest& rRequest, float fAngle)
{
    const double dSin = std::sin(double(fAngle) * g_dDegree);
    const double dCos = std::cos(double(fAngle) * g_dDegree);
    const int iBin = rRequest.iBin;
    // A specimen that rises goes up by tan b of its y along the beam: its rows slide. What moves it
    // across its own plane has a part along the rows' axis.
    const double dRise = rRequest.dTiltX * g_dDegree, dUp = iBin * rRequest.dShiftZ;
    const double dRight = iBin * (rRequest.dShiftX * dCos - rRequest.dAxisX);
    return {1,
            std::tan(dRise) * dSin,
            0,
            1,
            -dRight - dUp * std::cos(dRise) * dSin,
            dUp * std::sin(dRise)};
}

/// From a pixel of the aligned view to the place in the binned one, as the server counts them.
Affine MakeMap(const ViewMap& rInverse, const ViewAlignment& rAlignment)
{
    const int iBin = rAlignment.iBin;
    const ImageSize &rFrom = rAlignment.aAligned, &rRaw = rAlignment.aRaw;
    const double dX = iBin * -Centre(rFrom.iX), dY = iBin * -Centre(rFrom.iY);
    const auto ToBinned = [&](double dRaw, int iExtent)
    { return (dRaw + Centre(iExtent) - Centre(iBin)) / iBin; };
    const double dU = rInverse.dA11 * dX + rInverse.dA12 * dY + rInverse.dX;
    const double dV = rInverse.dA21 * dX + rInverse.dA22 * dY + rInverse.dY;
    return {float(rInverse.dA11), float(rInverse.dA12),         float(rInverse.dA21),
            float(rInverse.dA22), float(ToBinned(dU, rRaw.iX)), float(ToBinned(dV, rRaw.iY))};
}

/// What becomes of a raw view before it turns; a map for each view, or one that brings the axis to
/// the middle.
ViewMap GetOwnMap(const AlignRequest& rRequest, const ImageSize& rRaw, std::size_t tView)
{
    if (!rRequest.aMaps.empty()) return rRequest.aMaps[tView];
    return {1, 0, 0, 1, rRequest.dCentre ? Centre(rRaw.iX) - *rRequest.dCentre : 0, 0};
}

bool CheckCentre(const AlignRequest& rRequest, const ImageSize& rRaw, std::string& rError)
{
    if (!rRequest.dCentre) return true;
    if (!rRequest.aMaps.empty())
        return Fail(rError, "centre: the maps of --xf bring the axis to the middle already");
    // An axis along the rows crosses no column at one place.
    if (std::fabs(std::cos(rRequest.dTiltAxis * g_dDegree)) < 0.7)
        return Fail(rError, Format("centre: the axis at %g degrees does not lie along the columns",
                                   rRequest.dTiltAxis));
    if (*rRequest.dCentre >= 0 && *rRequest.dCentre <= rRaw.iX - 1) return true;
    return Fail(rError, Format("centre: column %g, but the views have columns 0 to %d",
                               *rRequest.dCentre, rRaw.iX - 1));
}

}  // namespace

ViewMap ViewMap::Then(const ViewMap& r) const
{
    return {r.dA11 * dA11 + r.dA12 * dA21,    r.dA11 * dA12 + r.dA12 * dA22,
            r.dA21 * dA11 + r.dA22 * dA21,    r.dA21 * dA12 + r.dA22 * dA22,
            r.dA11 * dX + r.dA12 * dY + r.dX, r.dA21 * dX + r.dA22 * dY + r.dY};
}

bool ViewMap::Invert(ViewMap& rInverse) const
{
    const double dDet = dA11 * dA22 - dA12 * dA21;
    if (!(std::fabs(dDet) > 1e-6)) return false;
    rInverse = {dA22 / dDet, -dA12 / dDet, -dA21 / dDet, dA11 / dDet, 0, 0};
    const ViewMap aBack = {1, 0, 0, 1, -dX, -dY};
    rInverse = aBack.Then(rInverse);
    return true;
}

ViewMap Turn(double dDegrees)
{
    const double dCos = std::cos(dDegrees * g_dDegree), dSin = std::sin(dDegrees * g_dDegree);
    return {dCos, -dSin, dSin, dCos, 0, 0};
}

void RoundAsXf(std::span<ViewMap> aMaps)
{
    for (ViewMap& r : aMaps)
    {
        for (double* pd : {&r.dA11, &r.dA12, &r.dA21, &r.dA22}) *pd = std::round(1e7 * *pd) / 1e7;
        for (double* pd : {&r.dX, &r.dY}) *pd = std::round(1e3 * *pd) / 1e3;
    }
}

bool WriteXf(const std::string& strPath, std::span<const ViewMap> aMaps, std::string& rError)
{
    std::string strText;
    for (const ViewMap& r : aMaps)
        strText += Format("%12.7f%12.7f%12.7f%12.7f%12.3f%12.3f\n", r.dA11, r.dA12, r.dA21, r.dA22,
                          r.dX, r.dY);
    return WriteTextFile(strPath, strText, rError);
}

bool ReadXf(const std::string& strPath, std::vector<ViewMap>& rMaps, std::string& rError)
{
    std::ifstream aFile;
    return OpenText(strPath, aFile, rError) && ReadXf(aFile, strPath, rMaps, rError);
}

bool ReadXf(std::istream& rText, const std::string& strName, std::vector<ViewMap>& rMaps,
            std::string& rError)
{
    std::vector<ViewMap> aMaps;
    const auto Take = [&aMaps](std::string_view strLine, std::string& rReason)
    {
        float af[6];
        if (!ParseNumbers(strLine, " \t,", af))
            return Fail(rReason, "expected the six numbers A11 A12 A21 A22 DX DY of a view");
        for (int i = 0; i < 6; ++i)
            if (std::fabs(af[i]) > (i < 4 ? 1e3f : 1e6f))
                return Fail(rReason, Format("%g is far from any view", double(af[i])));
        aMaps.push_back({af[0], af[1], af[2], af[3], af[4], af[5]});
        ViewMap aInverse;
        return aMaps.back().Invert(aInverse) ||
               Fail(rReason, "this map would squeeze the view into a line");
    };
    if (!ReadLines(rText, strName, "maps", Take, rError)) return false;
    rMaps = std::move(aMaps);
    return true;
}

bool AlignRequest::IsNone() const
{
    return aMaps.empty() && dTiltAxis == 0 && iBin == 1 && aSize.iX == 0 && dShiftZ == 0 &&
           dShiftX == 0 && dAxisX == 0 && dTiltX == 0 && !dCentre;
}

bool MakeViewAlignment(const AlignRequest& rRequest, const ImageSize& rRaw,
                       std::span<const float> fAngles, ViewAlignment& rAlignment,
                       std::string& rError)
{
    rAlignment = {rRaw, rRequest.iBin, {rRaw.iX / rRequest.iBin, rRaw.iY / rRequest.iBin}, {}, {}};
    rAlignment.aAligned = rAlignment.aBinned;
    if (rRequest.IsNone()) return true;
    if (rAlignment.aBinned.GetPixels() == 0)
        return Fail(rError, Format("bin: nothing is left of %d x %d pixels", rRaw.iX, rRaw.iY));
    if (!rRequest.aMaps.empty() && rRequest.aMaps.size() != fAngles.size())
        return Fail(rError,
                    Format("xf: %zu maps for %zu views", rRequest.aMaps.size(), fAngles.size()));
    if (!CheckCentre(rRequest, rRaw, rError)) return false;
    for (std::size_t i = 0; i < fAngles.size(); ++i)
    {
        const ViewMap aMap = GetOwnMap(rRequest, rRaw, i).Then(Turn(-rRequest.dTiltAxis));
        if (i == 0)
            rAlignment.aAligned =
                rRequest.aSize.iX > 0 ? rRequest.aSize : ChooseSize(rAlignment.aBinned, aMap);
        ViewMap aInverse;
        if (!aMap.Invert(aInverse))
            return Fail(rError, Format("xf: view %zu cannot be mapped", i + 1));
        const ViewMap aSlide = MakeSlide(rRequest, fAngles[i]);
        rAlignment.aMaps.push_back(MakeMap(aSlide.Then(aInverse), rAlignment));
    }
    return true;
}

void BinImage(std::span<const float> fPixels, const ImageSize& rSize, int iBin,
              std::span<float> fBinned)
{
    const int iX = rSize.iX / iBin, iY = rSize.iY / iBin;
    if (iBin == 1)
    {
        std::copy(fPixels.begin(), fPixels.end(), fBinned.begin());
        return;
    }
    for (int y = 0; y < iY; ++y)
        for (int x = 0; x < iX; ++x)
        {
            double dSum = 0;
            for (int j = y * iBin; j < (y + 1) * iBin; ++j)
                for (int i = x * iBin; i < (x + 1) * iBin; ++i)
                    dSum += double(fPixels[std::size_t(j) * rSize.iX + i]);
            fBinned[std::size_t(y) * iX + x] = float(dSum / (iBin * iBin));
        }
}

}  // namespace talven
