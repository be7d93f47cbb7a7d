// Kernels that stream over projection rows: weights and comparisons.

#include "tests/device/Rig.h"

namespace
{
// Measured pixels, and weights or ray sums that they meet.
constexpr float g_afIn[] = {6, -1, 5, 0, 1, NAN, -0.0f, 3, -1e30f, 0, 8};
constexpr float g_afWith[] = {4, 2, 0, 2, NAN, 2, 4, -2, 1, 0, INFINITY};
}  // namespace

TEST_P(Kernel, RowsAreWeightedAndCompared)
{
    for (const auto& [iX, iRows] : {std::pair{1, 1}, {17, 3}, {16, 16}, {37, 9}, {19, 30}})
    {
        Images aIn = RandomImages(iX, 5, iRows, -2, 2), aWith = RandomImages(iX, 5, iRows, 1, 3, 2);
        for (std::size_t i = 0; 2 * i < aIn.vf.size(); ++i)
            aIn.vf[2 * i] = g_afIn[i % 11], aWith.vf[2 * i] = g_afWith[i % 11];
        const Images aScale = RandomImages(iX, 5, 1, 1, 3, 3);  // of measured pixels
        CRig aRig;
        const DeviceImage aRaw = aRig.Array(aIn), aList = aRig.List({4, 1, 3});
        const DeviceImage aWeight = aRig.Table(Part(aWith, 0)), aScales = aRig.Table(aScale);
        for (int k = 0; k < 7; ++k)  // operations, in their order; differences without and with
        {                            // weights after them
            const bool bWeight = k < 4;
            const Images aBefore(iX, 5, iRows, 77);
            const DeviceImage aOut = aRig.Buffer(bWeight ? aBefore : aWith);
            const CompareRule aRule = {k < 6 ? ECombine::eDiff : ECombine::eDiv, aRaw, aScales,
                                       k == 5 ? aScales : DeviceImage()};
            ASSERT_TRUE(
                bWeight ? GetBackend()->Weight({aOut, aRaw, aWeight, aList, EWeight(k), iX, 1, 3})
                        : GetBackend()->Combine({aOut, aList, iX, 1, 3, aRule}));
            const Images aGot = CRig::Read(aOut, iRows);
            for (int i = 0; i < int(aGot.vf.size()); ++i)
            {
                const int n = i / iX % 5;
                const float fA = aIn.vf[i], fB = aWith.vf[bWeight ? i % (5 * iX) : i];
                const float fScale = aScale.vf[i % (5 * iX)], fScaled = fA * fScale;
                const float fDiff = fScaled - fB;
                const float fRatio = fScaled >= 0 && fB != 0 ? fScaled / fB : 1;
                const float afRules[] = {fA,    fA * fB,        fA * fB, fA / fB,
                                         fDiff, fDiff * fScale, fRatio};
                const bool bTouched = n == 1 || n == (k > 1 ? 3 : 2);
                const float fExpected = bTouched ? afRules[k] : bWeight ? 77 : fB;
                ASSERT_TRUE(aGot.vf[i] == fExpected ||
                            (std::isnan(aGot.vf[i]) && std::isnan(fExpected)))
                    << iX << " x " << iRows << ", operation " << k << ": " << aGot.vf[i] << " for "
                    << fA << " and " << fB << ", projection " << n;
            }
        }
    }
}

// For the Kernel tests of all files of this program.
INSTANTIATE_TEST_SUITE_P(Backends, Kernel, testing::ValuesIn(GetTestBackends()),
                         [](const auto& rInfo) { return rInfo.param; });
