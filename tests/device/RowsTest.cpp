// Kernels that stream over projection rows: weights and sums.

#include "gpulib/Device/GRFactor.h"
#include "gpulib/Device/GWeightProjs.h"
#include "tests/device/Rig.h"

TEST_P(Kernel, WeightsAddressRowsByPositionOrByNumber)
{
    for (const auto& [iX, iRows] : {std::pair{1, 1}, {17, 3}, {16, 16}, {37, 9}, {19, 30}})
    {
        SCOPED_TRACE(testing::Message() << iX << " columns, " << iRows << " rows");
        constexpr int iProjs = 5;
        const std::vector<unsigned> vuiIndex = {4, 1, 3};
        const Image aRaw = RandomImage(iX, iProjs, iRows, -2, 2, 1);
        const Image aWork = RandomImage(iX, iProjs, iRows, -2, 2, 2);
        const Image aPre = RandomImage(iX, iProjs, 1, 1, 3, 3);
        const Image aProj = RandomImage(iX, iProjs, 1, 1, 3, 4);
        Rig aRig;
        aRig.SetIndex(vuiIndex);
        Rig::Fill(aRig.aRaw, aRaw);
        Rig::Fill(aRig.aProjs, aWork);
        CDeviceArray2D aPreArray, aProjArray;
        Rig::Fill(aPreArray, aPre);
        Rig::Fill(aProjArray, aProj);

        GWeightProjs aWeights;
        aWeights.SetProjSize(iX);
        aWeights.SetProjIndexArray(aRig.aIndex.GetImage());
        aWeights.SetProjsArray(aRig.aProjs.GetImage());
        aWeights.SetRawProjsArray(aRig.aRaw.GetImage());
        aWeights.SetPreWeightArray(aPreArray.GetImage());
        aWeights.SetProjWeightArray(aProjArray.GetImage());
        struct Operation
        {
            bool (GWeightProjs::*pRun)(const DeviceImage&);
            bool bByNumber;
            float (*pfExpected)(float fRaw, float fWork, float fPre, float fProj);
        };
        for (const Operation& rO : {Operation{&GWeightProjs::NoWeightRef, false,
                                              [](float a, float, float, float) { return a; }},
                                    {&GWeightProjs::WeightRef, false,
                                     [](float a, float, float p, float) { return a * p; }},
                                    {&GWeightProjs::WeightRecon, true,
                                     [](float, float w, float, float q) { return w * q; }},
                                    {&GWeightProjs::WeightProjs, true,
                                     [](float, float w, float p, float) { return w / p; }}})
        {
            Image aBefore(iX, iProjs, iRows);
            aBefore.vf.assign(aBefore.Size(), 77);
            Rig::Fill(aRig.aOut, aBefore);
            aWeights.SetSetRange(1, 3);
            ASSERT_TRUE((aWeights.*rO.pRun)(aRig.aOut.GetImage()));
            const Image aOut = Rig::Read(aRig.aOut, iRows);
            for (int n = 0; n < iProjs; ++n)
            {
                const bool bIn = rO.bByNumber ? n == 1 || n == 3 : n == 1 || n == 2;
                for (int r = 0; r < iRows; ++r)
                    for (int x = 0; x < iX; ++x)
                        ASSERT_EQ(aOut.At(r, n, x),
                                  bIn ? rO.pfExpected(aRaw.At(r, n, x), aWork.At(r, n, x),
                                                      aPre.At(0, n, x), aProj.At(0, n, x))
                                      : 77)
                            << "projection " << n << " row " << r << " column " << x;
            }
        }
    }
}

TEST_P(Kernel, SumsRepeatTheLastColumnAndSkipMissing)
{
    for (const auto& [iX, iRows] : {std::pair{1, 1}, {300, 3}, {256, 16}, {257, 5}, {31, 29}})
    {
        SCOPED_TRACE(testing::Message() << iX << " columns, " << iRows << " rows");
        constexpr int iProjs = 4;
        const std::vector<unsigned> vuiIndex = {3, 0};
        Image aRaw = RandomImage(iX, iProjs, iRows, -3, 2, 1);
        aRaw.At(0, 3, iX / 2) = -1e15f;  // missing
        aRaw.At(iRows - 1, 0, iX / 3) = std::nanf("");
        const Image aWork = RandomImage(iX, iProjs, iRows, -1, 1, 2);
        Rig aRig;
        aRig.SetIndex(vuiIndex);
        Rig::Fill(aRig.aRaw, aRaw);
        Rig::Fill(aRig.aProjs, aWork);
        CPitchedPtr2D aRawSums, aDifSums;
        aRawSums.SetDouble();
        aDifSums.SetDouble();
        ASSERT_TRUE(aRawSums.Create(2, 1) && aDifSums.Create(2, 3));

        GRFactor aSums;
        aSums.SetProjSize(iX, 2);
        aSums.SetProjIndexArray(aRig.aIndex.GetImage());
        aSums.SetProjsArray(aRig.aProjs.GetImage());
        aSums.SetRawProjsArray(aRig.aRaw.GetImage());
        ASSERT_TRUE(aSums.DoRaw(aRawSums.GetImage(), iRows));
        ASSERT_TRUE(aSums.DoDif(aDifSums.GetImage(), 2, iRows));
        ASSERT_TRUE(aSums.DoDif(aDifSums.GetImage(), 2, iRows));  // adds
        double adRaw[2], adDif[6];
        ASSERT_TRUE(aRawSums.ToHost(adRaw) && aDifSums.ToHost(adDif));
        const int iPadded = (iX + 255) / 256 * 256;
        for (int p = 0; p < 2; ++p)
        {
            double dRaw = 0, dDif = 0;
            for (int r = 0; r < iRows; ++r)
                for (int i = 0; i < iPadded; ++i)
                {
                    const int x = std::min(i, iX - 1), n = int(vuiIndex[p]);
                    const double dValue = aRaw.At(r, n, x);
                    if (dValue > -9e14) dRaw += std::abs(dValue);
                    dDif += std::abs(aWork.At(r, n, x));
                }
            EXPECT_NEAR(adRaw[p], dRaw, 1e-5 * dRaw);
            EXPECT_NEAR(adDif[4 + p], 2 * dDif, 2e-5 * dDif);
            EXPECT_EQ(adDif[p], 0);
            EXPECT_EQ(adDif[2 + p], 0);
        }

        // One row at a time gives the same bits.
        CPitchedPtr2D aAgain;
        aAgain.SetDouble();
        ASSERT_TRUE(aAgain.Create(2, 1));
        for (int r = 0; r < iRows; ++r)
        {
            Rig::Fill(aRig.aRaw, aRaw.Rows(r, 1));
            aSums.SetRawProjsArray(aRig.aRaw.GetImage());
            ASSERT_TRUE(aSums.DoRaw(aAgain.GetImage(), 1));
        }
        double adAgain[2];
        ASSERT_TRUE(aAgain.ToHost(adAgain));
        EXPECT_EQ(adAgain[0], adRaw[0]);
        EXPECT_EQ(adAgain[1], adRaw[1]);
    }
}
