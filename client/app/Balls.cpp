#include "Balls.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "talven/Text.h"

namespace talven
{
namespace
{

constexpr double g_dDegree = std::numbers::pi / 180;

double Centre(double dExtent)
{
    return 0.5 * (dExtent - 1);
}

double GetDistance(const Place& a, const Place& b)
{
    double dSquares = 0;  // not std::hypot() of three, which loses numbers that are none
    for (std::size_t k = 0; k < 3; ++k) dSquares += (a[k] - b[k]) * (a[k] - b[k]);
    return std::sqrt(dSquares);
}

/// Greatest distance; no number when a place is none.
double GetWorst(std::span<const Place> aExpected, std::span<const Place> aFound)
{
    double dWorst = 0;
    for (std::size_t i = 0; i < aFound.size() && !std::isnan(dWorst); ++i)
        if (const double dFar = GetDistance(aExpected[i], aFound[i]); !(dFar <= dWorst))
            dWorst = dFar;
    return dWorst;
}

std::string Describe(const Place& r)
{
    return Format("(%.2f, %.2f, %.2f)", r[0], r[1], r[2]);
}

/// What would bring all of the expected places to the found ones; empty: nothing simple.
std::string Explain(std::span<const Place> aExpected, std::span<const Place> aFound,
                    const Place& rSize, double dAllowed)
{
    std::vector<Place> aMoved(aExpected.begin(), aExpected.end());
    Place aShift{};
    for (std::size_t i = 0; i < aMoved.size(); ++i)
        for (std::size_t k = 0; k < 3; ++k)
            aShift[k] += (aFound[i][k] - aMoved[i][k]) / double(aMoved.size());
    for (Place& rPlace : aMoved)
        for (std::size_t k = 0; k < 3; ++k) rPlace[k] += aShift[k];
    if (GetWorst(aMoved, aFound) <= dAllowed)
        return Format("all balls lie %+.2f columns, %+.2f rows, %+.2f sections", aShift[0],
                      aShift[1], aShift[2]) +
               " away from where they must be";
    for (unsigned uiMirrors = 1; uiMirrors < 8; ++uiMirrors)
    {
        std::string strAxes;
        for (std::size_t i = 0; i < aMoved.size(); ++i)
            for (std::size_t k = 0; k < 3; ++k)
                aMoved[i][k] =
                    (uiMirrors >> k & 1) != 0 ? rSize[k] - 1 - aExpected[i][k] : aExpected[i][k];
        if (!(GetWorst(aMoved, aFound) <= dAllowed)) continue;
        for (std::size_t k = 0; k < 3; ++k)
            if ((uiMirrors >> k & 1) != 0)
                strAxes += std::string(strAxes.empty() ? "" : " and ") +
                           std::array{"columns", "rows", "sections"}[k];
        return "the balls lie as if " + strAxes + " ran the other way";
    }
    return "";
}

double GetDeterminant(const std::array<Place, 3>& r)
{
    return r[0][0] * (r[1][1] * r[2][2] - r[1][2] * r[2][1]) -
           r[0][1] * (r[1][0] * r[2][2] - r[1][2] * r[2][0]) +
           r[0][2] * (r[1][0] * r[2][1] - r[1][1] * r[2][0]);
}

}  // namespace

std::array<Ball, 4> PlaceBalls(const Place& rHalf, double dTiltX)
{
    const double dCos = std::cos(dTiltX * g_dDegree), dSin = std::sin(dTiltX * g_dDegree);
    const double dRows = std::min(rHalf[1], (rHalf[1] - rHalf[2] * std::fabs(dSin)) / dCos);
    const auto At = [&](double dX, double dY, double dZ)
    {
        const double dLeft = std::sqrt(1 - dX * dX) * rHalf[0];  // of the circle, beside x
        return Place{dX * rHalf[0], dY * std::min(dRows, dLeft),
                     dZ * std::min(rHalf[2], dLeft * dCos)};
    };
    return {{{At(0.62, 0.90, 0.85), 8},
             {At(-0.80, 0.75, -0.70), 6},
             {At(0.55, -0.95, -0.95), 4.5},
             {At(-0.35, -0.40, 0.95), 3.4}}};
}

std::array<double, 2> Camera::GetSpot(const Ball& rBall) const
{
    const double dCos = std::cos(dAngle * g_dDegree), dSin = std::sin(dAngle * g_dDegree);
    const auto [dX, dFlatY, dFlatZ] = rBall.aPlace;
    const double dRise = dTiltX * g_dDegree, dHeight = dFlatZ - dShiftZ;
    const double dY = dFlatY * std::cos(dRise) - dHeight * std::sin(dRise);
    const double dZ = dFlatY * std::sin(dRise) + dHeight * std::cos(dRise);
    const double dAcross = iBin * (dX * dCos + dZ * dSin), dAlong = iBin * dY;
    // The tilt axis lies along (-sin, cos) of its angle.
    const double dAxis = dTiltAxis * g_dDegree;
    ViewMap aBack;
    if (!aMap.Invert(aBack)) return {};
    const double dU = dAcross * std::cos(dAxis) - dAlong * std::sin(dAxis);
    const double dV = dAcross * std::sin(dAxis) + dAlong * std::cos(dAxis);
    return {aBack.dA11 * dU + aBack.dA12 * dV + aBack.dX,
            aBack.dA21 * dU + aBack.dA22 * dV + aBack.dY};
}

void Camera::Record(std::span<const Ball> aBalls, std::span<float> fRaw) const
{
    std::ranges::fill(fRaw, 0.0f);
    // A spot is round in the view that the map leads to, an ellipse in the raw one.
    const double dDet = std::fabs(aMap.dA11 * aMap.dA22 - aMap.dA12 * aMap.dA21);
    const double dLongest = std::hypot(std::hypot(aMap.dA11, aMap.dA12),  // over the shortest axis
                                       std::hypot(aMap.dA21, aMap.dA22)) /
                            dDet;
    const double dReach = g_dBallReach * iBin * std::max(1.0, dLongest);
    const double dWidth = g_dBallWidth * iBin;
    for (const Ball& rBall : aBalls)
    {
        const auto [dU, dV] = GetSpot(rBall);
        const auto Range = [dReach](double dMiddle, int iExtent)
        {
            const double dPixel = dMiddle + Centre(iExtent);
            return std::pair(int(std::clamp(dPixel - dReach, 0.0, double(iExtent))),
                             int(std::clamp(dPixel + dReach + 1, 0.0, double(iExtent))));
        };
        const auto [iFirstX, iEndX] = Range(dU, aRaw.iX);
        const auto [iFirstY, iEndY] = Range(dV, aRaw.iY);
        for (int y = iFirstY; y < iEndY; ++y)
            for (int x = iFirstX; x < iEndX; ++x)
            {
                const double dX = x - Centre(aRaw.iX) - dU, dY = y - Centre(aRaw.iY) - dV;
                const double dFar =
                    std::hypot(aMap.dA11 * dX + aMap.dA12 * dY, aMap.dA21 * dX + aMap.dA22 * dY);
                fRaw[std::size_t(y) * std::size_t(aRaw.iX) + std::size_t(x)] +=
                    float(rBall.dPeak * std::exp(-0.5 * std::pow(dFar / dWidth, 2)));
            }
    }
}

Place GetPlaceInFile(const Place& rPlace, const VolumeForm& rForm, const JobSize& rSize)
{
    const std::array<int, 3> aiWhole = {rSize.iVolX, rSize.iProjY, rSize.iVolZ};
    Place aFile;
    for (std::size_t i = 0; i < 3; ++i)
    {
        const int iKept = rForm.aiSize[i] > 0 ? rForm.aiSize[i] : aiWhole[i];
        aFile[i] = rPlace[i] + Centre(aiWhole[i]) - (aiWhole[i] - iKept) / 2;
        if (i == 2 && rForm.bFlipZ) aFile[i] = iKept - 1 - aFile[i];
    }
    if (rForm.bXzy) std::swap(aFile[1], aFile[2]);
    return aFile;
}

bool FindBalls(CMrcReader& rFile, int iCount, std::vector<Place>& rPlaces, std::string& rError)
{
    const MrcHeader& rHeader = rFile.GetHeader();
    const std::size_t tSection = rHeader.GetSectionPixels();
    const std::array<int, 3> aiSize = {rHeader.iX, rHeader.iY, rHeader.iZ};
    std::vector<float> vfVolume(tSection * std::size_t(rHeader.iZ));
    double dGround = 0;  // the mean: nearly all of the volume is empty
    for (int z = 0; z < rHeader.iZ; ++z)
        if (!rFile.ReadSection(z, std::span(vfVolume).subspan(std::size_t(z) * tSection, tSection)))
            return Fail(rError, rFile.GetError());
    for (const float fValue : vfVolume) dGround += double(fValue) / double(vfVolume.size());
    const int iReach = int(g_dBallReach);
    rPlaces.clear();
    for (int iBall = 0; iBall < iCount; ++iBall)
    {
        const auto pMost = std::ranges::max_element(vfVolume);
        auto lPlace = int(pMost - vfVolume.begin());
        std::array<int, 3> aiFrom, aiTo;
        for (std::size_t k = 0; k < 3; lPlace /= aiSize[k++])
        {
            aiFrom[k] = std::max(0, lPlace % aiSize[k] - iReach);
            aiTo[k] = std::min(aiSize[k] - 1, lPlace % aiSize[k] + iReach);
        }
        const double dLeast = 0.5 * (dGround + double(*pMost));
        double dSum = 0;
        Place aMean{};
        for (int z = aiFrom[2]; z <= aiTo[2]; ++z)
            for (int y = aiFrom[1]; y <= aiTo[1]; ++y)
                for (int x = aiFrom[0]; x <= aiTo[0]; ++x)
                {
                    float& rValue =
                        vfVolume[std::size_t(z) * tSection +
                                 std::size_t(y) * std::size_t(rHeader.iX) + std::size_t(x)];
                    const double dWeight = std::max(0.0, double(rValue) - dLeast);
                    rValue = float(dGround);  // the next one lies elsewhere
                    dSum += dWeight;
                    aMean[0] += dWeight * x;
                    aMean[1] += dWeight * y;
                    aMean[2] += dWeight * z;
                }
        for (double& rMean : aMean) rMean /= std::max(dSum, 1e-30);
        rPlaces.push_back(aMean);
    }
    return true;
}

bool ComparePlaces(std::span<const Place> aExpected, std::span<const Place> aFound,
                   const Place& rSize, double dAllowed, double& rWorst, std::string& rError)
{
    rWorst = GetWorst(aExpected, aFound);
    if (rWorst <= dAllowed) return true;
    const std::string strReason = Explain(aExpected, aFound, rSize, dAllowed);
    if (!strReason.empty()) return Fail(rError, strReason);
    std::size_t tBall = 0;
    while (GetDistance(aExpected[tBall], aFound[tBall]) < rWorst) ++tBall;
    return Fail(rError, Format("ball %zu lies at column, row and section ", tBall + 1) +
                            Describe(aFound[tBall]) + ", not at " + Describe(aExpected[tBall]) +
                            Format(": %.2f voxels away", rWorst));
}

FileFrame FileFrame::Measure(std::span<const Ball> aBalls, std::span<const Place> aFound)
{
    const auto Step = [&](std::size_t i, std::size_t k)
    { return aBalls[i + 1].aPlace[k] - aBalls[0].aPlace[k]; };
    std::array<Place, 3> aSteps;  // from the first ball to each other
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t k = 0; k < 3; ++k) aSteps[i][k] = Step(i, k);
    FileFrame aFrame;
    for (std::size_t n = 0; n < 3; ++n)  // Cramer's rule: steps . axis = what the file has between
    {
        aFrame.aOrigin[n] = aFound[0][n];
        for (std::size_t k = 0; k < 3; ++k)
        {
            std::array<Place, 3> aWith = aSteps;
            for (std::size_t i = 0; i < 3; ++i) aWith[i][k] = aFound[i + 1][n] - aFound[0][n];
            aFrame.aAxes[n][k] = GetDeterminant(aWith) / GetDeterminant(aSteps);
            aFrame.aOrigin[n] -= aFrame.aAxes[n][k] * aBalls[0].aPlace[k];
        }
    }
    return aFrame;
}

std::string FileFrame::GetDirection(int iAxis) const
{
    const Place& rAxis = aAxes[std::size_t(iAxis)];
    std::size_t tMost = 0;
    for (std::size_t k = 1; k < 3; ++k)
        if (std::fabs(rAxis[k]) > std::fabs(rAxis[tMost])) tMost = k;
    return std::string(rAxis[tMost] > 0 ? "+" : "-") + "XYZ"[tMost];
}

bool FileFrame::IsMirrored() const
{
    return GetDeterminant(aAxes) < 0;
}

}  // namespace talven
