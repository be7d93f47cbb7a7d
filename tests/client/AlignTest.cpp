// Raw views that are shifted, turned, stretched and binned come back at the right place.

#include <cmath>
#include <numbers>

#include "Support.h"
#include "talven/Reconstruction.h"

namespace talven::test
{
namespace
{

/// What was done to the views of a series.
struct Road
{
    ImageSize aRaw, aAligned;
    int iBin = 1;
    double dTiltAxis = 0, dAngleOffset = 0, dShiftZ = 0;
    bool bMaps = false;
    double dTiltX = 0;
};

/// A ball of Gaussian density, width 3, centred at this place from the centre of the volume.
constexpr double g_dX = 7.3, g_dY = -4.6, g_dZ = 3.7;

/// A view of it, from the formula: raw pixel r shows what the aligned view has at A r + D.
void Photograph(const Road& rRoad, const ViewMap& rMap, double dAngle, std::span<float> fRaw)
{
    const double dTilt = dAngle * std::numbers::pi / 180;
    // As it lay in the microscope, risen towards +Y.
    const double dRise = rRoad.dTiltX * std::numbers::pi / 180;
    const double dY = g_dY * std::cos(dRise) - g_dZ * std::sin(dRise);
    const double dZ = g_dY * std::sin(dRise) + g_dZ * std::cos(dRise);
    const double dU = rRoad.iBin * (g_dX * std::cos(dTilt) + dZ * std::sin(dTilt));
    const double dV = rRoad.iBin * dY, dWidth = 3 * rRoad.iBin;
    const double dAxis = rRoad.dTiltAxis * std::numbers::pi / 180;
    for (std::size_t i = 0; i < fRaw.size(); ++i)
    {
        const double dRawX = double(i % std::size_t(rRoad.aRaw.iX)) - (rRoad.aRaw.iX - 1) / 2.0;
        const double dRawY = double(i / std::size_t(rRoad.aRaw.iX)) - (rRoad.aRaw.iY - 1) / 2.0;
        const double dMappedX = rMap.dA11 * dRawX + rMap.dA12 * dRawY + rMap.dX;
        const double dMappedY = rMap.dA21 * dRawX + rMap.dA22 * dRawY + rMap.dY;
        // The tilt axis lies along (-sin, cos): it becomes +Y.
        const double dAcross = dMappedX * std::cos(dAxis) + dMappedY * std::sin(dAxis);
        const double dAlong = -dMappedX * std::sin(dAxis) + dMappedY * std::cos(dAxis);
        fRaw[i] = float(100 * std::exp(-(std::pow(dAcross - dU, 2) + std::pow(dAlong - dV, 2)) /
                                       (2 * dWidth * dWidth)));
    }
}

TEST(ClientAlign, BringsBackWhatWasMoved)
{
    setenv("TALVEN_SERVER", TALVEN_SERVER_PROGRAM, 1);
    const Road aRoads[] = {{{80, 60}, {80, 60}},
                           {{80, 60}, {80, 60}, 1, 0, 0, 0, true},
                           {{81, 64}, {75, 71}, 1, 85.3, 0, 2.5, true},
                           {{80, 61}, {64, 80}, 1, -94.2, 1.5},
                           {{163, 122}, {80, 60}, 2, 0, -2, -3, true},
                           {{162, 123}, {61, 81}, 2, 84, 0, 0, true},
                           {{80, 60}, {80, 60}, 1, 0, 0, 0, false, 12},
                           {{163, 122}, {61, 82}, 2, 84, 1, -3, true, -7},
                           {{242, 183}, {81, 61}, 3, 178, 0, 1, true}};
    for (const Road& rRoad : aRoads)
    {
        SCOPED_TRACE(testing::Message() << "road " << &rRoad - aRoads);
        ReconRequest aRequest;
        aRequest.iThickness = 31;
        aRequest.eMethod = EMethod::eBackProj;
        aRequest.bFilter = true;
        aRequest.dAngleOffset = rRoad.dAngleOffset;
        aRequest.aAlign = {{},          rRoad.dTiltAxis, rRoad.iBin, rRoad.aAligned, rRoad.dShiftZ,
                           rRoad.dTiltX};
        Floats vfAngles;
        for (int i = 0; i < 60; ++i)
        {
            vfAngles.push_back(float(3 * i - 90 - rRoad.dAngleOffset));
            const double dTurn = 0.4 * std::sin(i), dSize = 1 + 0.1 * std::cos(3 * i);
            if (rRoad.bMaps)
                aRequest.aAlign.aMaps.push_back({dSize * std::cos(dTurn), -dSize * std::sin(dTurn),
                                                 std::sin(dTurn) + 0.05, std::cos(dTurn),
                                                 5 * std::sin(2 * i), 4 * std::cos(i)});
        }
        aRequest.viExclude = {7, 20};
        ReconPlan aPlan;
        std::string strError;
        ASSERT_TRUE(MakeReconPlan(aRequest, rRoad.aRaw, vfAngles, aPlan, strError)) << strError;
        const auto Give = [&](int i, std::span<float> fRaw, std::string&)
        {
            const auto tView = std::size_t(aPlan.viViews[std::size_t(i)]);
            Photograph(rRoad, rRoad.bMaps ? aRequest.aAlign.aMaps[tView] : ViewMap(),
                       vfAngles[tView] + rRoad.dAngleOffset, fRaw);
            return true;
        };
        double dSum = 0, adPlace[3] = {};
        const auto Take = [&](int z, std::span<const float> fSlice, std::string&)
        {
            for (int i = 0; i < int(fSlice.size()); ++i)
            {
                const int iX = i % rRoad.aAligned.iX, iY = i / rRoad.aAligned.iX;
                const double dFar = std::hypot(iX - (rRoad.aAligned.iX - 1) / 2.0 - g_dX,
                                               iY - (rRoad.aAligned.iY - 1) / 2.0 - g_dY);
                const double dValue = dFar < 12 ? double(fSlice[std::size_t(i)]) : 0;
                dSum += dValue;
                adPlace[0] += dValue * (iX - (rRoad.aAligned.iX - 1) / 2.0);
                adPlace[1] += dValue * (iY - (rRoad.aAligned.iY - 1) / 2.0);
                adPlace[2] += dValue * (z - 15);
            }
            return true;
        };
        CMonitor aMonitor;
        CServerLink aLink;
        ASSERT_TRUE(aLink.Connect({}, aMonitor)) << aLink.GetError();
        CReconstruction aJob(aLink, aMonitor);
        ASSERT_TRUE(aJob.Upload(aPlan, Give) && aJob.Run() && aJob.Download(Take))
            << aJob.GetError();
        EXPECT_NEAR(adPlace[0] / dSum, g_dX, 0.05);
        EXPECT_NEAR(adPlace[1] / dSum, g_dY, 0.05);
        EXPECT_NEAR(adPlace[2] / dSum, g_dZ + rRoad.dShiftZ, 0.05);
    }
}

TEST(ClientAlign, BinsToMeans)
{
    const Floats vfRaw = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, -1e30f};  // 5 x 3
    Floats vfBinned(2);
    BinImage(vfRaw, {5, 3}, 2, vfBinned);
    EXPECT_EQ(vfBinned, (Floats{4, 6}));
    vfBinned.resize(1);
    BinImage(Floats{1, -1e30f, 3, 4}, {2, 2}, 2, vfBinned);
    EXPECT_TRUE(IsMissing(vfBinned[0]));
    ViewAlignment aAlignment;
    std::string strError;
    ASSERT_TRUE(MakeViewAlignment({{}, 88}, {40, 30}, Floats{0}, aAlignment, strError));
    EXPECT_TRUE(aAlignment.aAligned.iX == 30 && aAlignment.aAligned.iY == 40) << "on its side";
    EXPECT_FALSE(MakeViewAlignment({{}, 0, 31}, {40, 30}, Floats{0}, aAlignment, strError));
    EXPECT_EQ(strError, "bin: nothing is left of 40 x 30 pixels");
}

}  // namespace
}  // namespace talven::test
