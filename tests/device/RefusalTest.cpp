// What would read or write beside an image is refused before any kernel sees it.

#include <climits>

#include "gpulib/Device/DeviceArray3D.h"
#include "gpulib/Device/PitchedPtr3D.h"
#include "tests/device/Rig.h"

namespace
{
/// Spoils the images and numbers of what the kernel would carry out.
/// \param rFromZero  numbers that must not be negative
/// \param rMost      numbers that stand at their upper limit
template <class P>
void Spoil(bool (CBackend::*pRun)(const P&), const P& rGood,
           const std::vector<DeviceImage P::*>& rImages, const std::vector<int P::*>& rFromZero,
           const std::vector<int P::*>& rMost)
{
    EXPECT_TRUE((GetBackend()->*pRun)(rGood)) << TakeDeviceError();
    const auto Refused = [&](auto pMember, const auto& rBad)
    {
        P aParams = rGood;
        aParams.*pMember = rBad;
        EXPECT_FALSE((GetBackend()->*pRun)(aParams));
        EXPECT_NE(TakeDeviceError(), "");
    };
    CRig aRig;
    const std::vector<float> vfOnes(90, 1);
    const DeviceImage aTiny = aRig.Array(Images(1, 1, 4)), aPairs = aRig.Pairs(10, vfOnes, vfOnes);
    const DeviceImage aRow = aRig.Array(Images(8, 2, 1));
    for (const auto pImage : rImages)
    {
        for (const DeviceImage& rBad : {DeviceImage(), aTiny}) Refused(pImage, rBad);
        if ((rGood.*pImage).iLanes > 1) Refused(pImage, aRow);
        if ((rGood.*pImage).iChannels == 1) Refused(pImage, aPairs);
    }
    if constexpr (requires { rGood.aProjIndex; }) Refused(&P::aProjIndex, aRig.List({0, 2}));
    for (const auto piNumber : rFromZero) Refused(piNumber, -1);
    for (const auto piNumber : rMost)
        for (const int iBad : {rGood.*piNumber + 1, INT_MAX}) Refused(piNumber, iBad);
}
}  // namespace

TEST_P(Kernel, RefusesWhatLiesBesideItsImages)
{
    // Batches of 4 rows, 2 projections of 8 columns, slices of 8 x 4; the list names both.
    CRig aRig;
    const DeviceImage aVol = aRig.Array(Images(8, 4, 4), 1), aProjs = aRig.Array(Images(8, 2, 4));
    const DeviceImage aCosSin = aRig.Pairs(2, {1, 1}, {0, 0}), aIndex = aRig.List({0, 1});
    const DeviceImage aRow = aRig.Array(Images(8, 2, 1)), aPlain = aRig.Buffer(Images(8, 9, 1));
    using F = ForwardParams;
    Spoil<F>(&CBackend::ForwardProject, {aProjs, aVol, aCosSin, aIndex, 8, 4, 8, 0, 2, {}},
             {&F::aSums, &F::aVol, &F::aCosSin, &F::aProjIndex},
             {&F::iVolX, &F::iVolZ, &F::iProjX, &F::iFirst},
             {&F::iVolX, &F::iVolZ, &F::iProjX, &F::iEnd});
    using B = BackParams;
    const DeviceImage aRange = aRig.Pairs(4, std::vector<float>(8), std::vector<float>(8));
    Spoil<B>(&CBackend::BackProject,
             {aVol, aProjs, aCosSin, aIndex, aRange, EUpdate::eEm, 1, 8, 4, 8, 0, 2, 0, 4},
             {&B::aVol, &B::aProjs, &B::aCosSin, &B::aProjIndex, &B::aRangeX},
             {&B::iVolX, &B::iVolZ, &B::iProjX, &B::iFirst, &B::iEnd, &B::iY},
             {&B::iVolX, &B::iVolZ, &B::iProjX, &B::iEnd, &B::iY, &B::iRows});
    EXPECT_TRUE(GetBackend()->ForwardProject({}) && GetBackend()->BackProject({}));  // no rows
    using C = CombineParams;
    const CompareRule aRule = {ECombine::eDiff, aProjs, aRow, aRow};
    Spoil<C>(&CBackend::Combine, {aProjs, aIndex, 8, 0, 2, aRule}, {&C::aSums, &C::aProjIndex},
             {&C::iFirst}, {&C::iProjX, &C::iEnd});
    for (const auto pImage : {&CompareRule::aRaw, &CompareRule::aWeight, &CompareRule::aAfter})
    {
        CompareRule aBad = aRule;
        aBad.*pImage = aCosSin;
        EXPECT_FALSE(
            GetBackend()->Combine({aProjs, aIndex, 8, 0, 2, aBad}) ||
            GetBackend()->ForwardProject({aProjs, aVol, aCosSin, aIndex, 8, 4, 8, 0, 2, aBad}));
    }
    using W = WeightParams;
    Spoil<W>(&CBackend::Weight, {aProjs, aProjs, aRow, aIndex, EWeight::eRecon, 8, 0, 2},
             {&W::aOut, &W::aIn, &W::aWeight, &W::aProjIndex}, {&W::iFirst},
             {&W::iProjX, &W::iEnd});
    EXPECT_FALSE(GetBackend()->Weight({aProjs, aProjs, aRow, {}, EWeight::eRef, 8, -1, 2}) ||
                 GetBackend()->Weight({aProjs, aProjs, aRow, {}, EWeight::eRef, 8, 0, 3}));
    using S = SumAbsParams;
    Spoil<S>(&CBackend::SumAbs, {aProjs, aRow, aProjs, aRig.Doubles(2, 3), aIndex, 8, 2, 2, 4},
             {&S::aSource, &S::aWeight, &S::aAccum, &S::aProjIndex}, {&S::iProjX, &S::iIter},
             {&S::iProjX, &S::iProjs, &S::iIter, &S::iRows});
    using T = TransformParams;
    Spoil<T>(&CBackend::Transform, {aPlain, aPlain, aRow, {}, {}, false, 8, 0, 9},
             {&T::aOut, &T::aMiss}, {&T::iProjX, &T::iStartY}, {&T::iProjX, &T::iRows});
    using K = CompareParams;
    const DeviceImage aSums = aRig.Buffer(Images(10, eCompareSums, 1));
    Spoil<K>(&CBackend::CompareSums, {aSums, aPlain, aPlain, aPlain, 8, 1, 9},
             {&K::aSums, &K::aAligned, &K::aTransed, &K::aMiss}, {&K::iProjX, &K::iFirst},
             {&K::iProjX, &K::iFirst, &K::iRows});
    using V = SmoothParams;
    CDeviceArray3D aVolume, aKernel;
    CPitchedPtr3D aOut;
    ASSERT_TRUE(aVolume.Create(4, 3, 2) && aKernel.Create(1, 1025, 1) && aOut.Create(4, 3, 2));
    Spoil<V>(&CBackend::Smooth, {aOut.GetImage(), aVolume.GetImage(), aRow},
             {&V::aOut, &V::aVol, &V::aKernel}, {}, {});
    EXPECT_FALSE(GetBackend()->Smooth({aOut.GetImage(), aVolume.GetImage(), aKernel.GetImage()}));
    EXPECT_FALSE(GetBackend()->Transform({aPlain, aPlain, {}, {}, {}, false, 8, 0, 9}));
    TakeDeviceError();
}

TEST_P(Kernel, MemoryRefusesAndNamesItsNumbers)
{
    CRig aRig;
    CDeviceArray2D aArray;
    const Images aSmall(2, 2, 1);
    float afValues[4] = {};
    const DeviceImage aImage = aRig.Array(Images(4, 4, 1)), aPlain = aRig.Buffer(Images(8, 9, 1));
    const auto Note = [](bool bDone) { return std::pair{bDone, TakeDeviceError()}; };
    const auto Fill = [&](int iX, int iY, int iWidth)
    { return Note(GetBackend()->Upload(aImage, Borrow(aSmall), iX, iY, iWidth, 2)); };
    for (const auto& [aGot, pcExpected] :
         {std::pair{Note(aArray.Create(0, 3)), "0 x 3"},
          {Note(aArray.Create(1 << 30, 1 << 30)), "1073741824 x 1073741824"},
          {Note(aArray.HostToDevice(afValues)), "empty"},
          {Note(aArray.CreateLent(nullptr, 2, 2)), "lend array"},
          {Note(aArray.CreateLentRows({afValues, 4, 2, 2}, 1, 1)), "1 columns, 2 apart"},
          {Note(GetBackend()->SelectDevice(99)), "device 99 of "},
          {Note(GetBackend()->Copy(aImage, aPlain)), "8 x 9 x 1 to 4 x 4"},
          {Note(GetBackend()->Clear(DeviceImage())), "clear: "},
          {Fill(3, 0, 2), "2 x 2 at (3, 0)"},
          {Fill(-1, 0, 2), "2 x 2 at (-1, 0)"},
          {Fill(0, 0, -2), "-2 x 2 at"},
          {Fill(INT_MAX, 0, 2), "at (2147483647, 0)"}})
    {
        EXPECT_FALSE(aGot.first) << pcExpected;
        EXPECT_NE(aGot.second.find(pcExpected), std::string::npos) << aGot.second;
    }
}
