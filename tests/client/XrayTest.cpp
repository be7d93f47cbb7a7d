// Views of X-ray scans: flat fields, angles in radians, the rotation axis.

#include <cmath>

#include "Support.h"
#include "talven/Angles.h"
#include "talven/FlatField.h"
#include "talven/ReconPlan.h"
#include "talven/RotationCentre.h"

namespace talven::test
{
namespace
{

/// Frames in memory.
class CFrames : public CImageStack
{
public:
    CFrames(const ImageSize& rSize, Floats vfPixels) : m_vfPixels(std::move(vfPixels))
    {
        m_strPath = "frames";
        m_aSize = rSize;
        m_iSections = int(m_vfPixels.size() / rSize.GetPixels());
    }

private:
    bool mRead(int iZ, std::span<float> fPixels) override
    {
        const auto pFirst = m_vfPixels.begin() + iZ * std::ptrdiff_t(fPixels.size());
        std::copy_n(pFirst, fPixels.size(), fPixels.begin());
        return true;
    }
    Floats m_vfPixels;
};

TEST(ClientXray, DividesByTheFlatField)
{
    constexpr float fNone = -1e30f;
    const ImageSize aSize = {6, 1};
    // Two frames each; dead where flat is as dark as dark, or where a frame has no data.
    CFrames aFlat(aSize, {99, 50, 10, 9, fNone, 50, 101, 50, 10, 9, 50, 50});
    CFrames aDark(aSize, {10, 10, 10, 10, 10, fNone});
    const Floats vfRaw = {55, 10, 20, 20, 20, 20};
    const auto Correct = [&](CImageStack* pFlat, CImageStack* pDark, bool bMinusLog, Floats vfView)
    {
        CFlatField aField;
        std::string strError;
        EXPECT_TRUE(aField.Make(pFlat, pDark, bMinusLog, aSize, strError)) << strError;
        aField.Correct(vfView);
        for (float& rf : vfView) rf = IsMissing(rf) ? fNone : rf;
        return vfView;
    };
    EXPECT_EQ(Correct(nullptr, nullptr, false, vfRaw), vfRaw);
    EXPECT_EQ(Correct(&aFlat, &aDark, false, vfRaw), (Floats{0.5f, 0, 0, 0, 0, 0}))
        << "after the last";
    EXPECT_EQ(Correct(nullptr, &aDark, false, vfRaw), (Floats{45, 0, 10, 10, 10, 10}));
    CFrames aGap(aSize, {0, 50, 0, 1e-3f, 50, 100}), aNothing(aSize, Floats(6));
    EXPECT_EQ(Correct(&aGap, nullptr, false, {9, 50, 9, 9, 200, 50}),
              (Floats{1, 1, 2, 3, 4, 0.5f}));
    EXPECT_EQ(Correct(&aNothing, nullptr, false, vfRaw), Floats(6, fNone));
    const Floats vfLog = Correct(nullptr, nullptr, true, {1, 0.5f, 1e-3f, 0, -7, fNone});
    const double adExpected[] = {0, std::log(2), 3 * std::log(10), 4 * std::log(10),
                                 4 * std::log(10)};
    for (std::size_t i = 0; i < 5; ++i) EXPECT_NEAR(vfLog[i], adExpected[i], 2e-6) << i;
    EXPECT_EQ(vfLog[5], fNone);

    CFlatField aField;
    std::string strError;
    EXPECT_FALSE(aField.Make(&aFlat, nullptr, false, {3, 2}, strError));
    EXPECT_EQ(strError, "frames: frames of 6 x 1, but the views have 3 x 2");
}

TEST(ClientXray, RefusesRadians)
{
    const auto Make = [](int iCount, float fFirst, float fStep)
    {
        Floats vf;
        for (int i = 0; i < iCount; ++i) vf.push_back(fFirst + float(i) * fStep);
        return vf;
    };
    ReconRequest aRequest;
    aRequest.iThickness = 5;
    ReconPlan aPlan;
    std::string strError;
    for (const Floats& rBad :
         {Make(180, 0, 0.01745f), Make(361, 0, 0.01745f), Make(10, -0.5f, 0.12f)})
    {
        EXPECT_FALSE(MakeReconPlan(aRequest, {8, 8}, rBad, aPlan, strError)) << rBad.size();
        EXPECT_NE(strError.find("angles: "), std::string::npos);
        EXPECT_NE(strError.find("multiply by 57.2958"), std::string::npos) << strError;
    }
    for (const Floats& rGood :
         {Make(41, -60, 3), Make(9, 0, 0.3f), Make(20, 0, 0.01f), Make(20, 0, 0.4f)})
        EXPECT_TRUE(MakeReconPlan(aRequest, {8, 8}, rGood, aPlan, strError)) << strError;
}

TEST(ClientXray, FindsTheAxisOnlyWhereItCan)
{
    // A step moves with sin(angle); the view with index 9 shows nothing.
    const ImageSize aSize = {60, 2};
    const auto Give = [&](int i, std::span<float> fView, std::string&)
    {
        const double dPlace = 33.4 + 9 * std::cos(i * M_PI / 6);
        for (std::size_t t = 0; t < fView.size(); ++t)
            fView[t] = i == 9 ? 5 : float(std::exp(-std::pow((t % 60 - dPlace) / 2, 2)));
        return true;
    };
    Floats vfAngles;
    for (int i = 0; i < 12; ++i) vfAngles.push_back(30.0f * float(i));
    RotationCentre aCentre;
    std::string strError;
    ASSERT_TRUE(FindRotationCentre(aSize, vfAngles, Give, aCentre, strError)) << strError;
    EXPECT_NEAR(aCentre.dColumn, 33.4, 0.02);
    const auto Expect = [&](std::size_t tViews, const char* pcReason)
    {
        const ImageSource Blind = [&](int i, std::span<float> fView, std::string& rError)
        { return Give(i == 0 ? 9 : i, fView, rError); };
        EXPECT_FALSE(
            FindRotationCentre(aSize, std::span(vfAngles).first(tViews), Blind, aCentre, strError));
        EXPECT_NE(strError.find(pcReason), std::string::npos) << strError;
    };
    Expect(1, "one view");
    Expect(5, "1 and 5, are 120 degrees apart");
    Expect(7, "views 1 and 7, half a turn apart, do not agree (correlation 0.00)");

    AlignRequest aRequest;
    ViewAlignment aAlignment;
    aRequest.dCentre = 12;
    aRequest.dTiltAxis = 80;
    EXPECT_FALSE(MakeViewAlignment(aRequest, aSize, Floats{0}, aAlignment, strError));
    EXPECT_EQ(strError, "centre: the axis at 80 degrees does not lie along the columns");
    aRequest = {{ViewMap()}};
    aRequest.dCentre = 12;
    EXPECT_FALSE(MakeViewAlignment(aRequest, aSize, Floats{0}, aAlignment, strError));
    EXPECT_EQ(strError, "centre: the maps of --xf bring the axis to the middle already");
}

}  // namespace
}  // namespace talven::test
