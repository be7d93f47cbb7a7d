// What would read or write beside an image is refused before any kernel sees it.

#include <climits>

#include "gpulib/Device/DeviceArray3D.h"
#include "gpulib/Device/PitchedPtr3D.h"
#include "tests/device/Rig.h"

namespace
{
struct WithBackend
{
    WithBackend() { SetBackend(MakeTestBackend("host", 1)); }
    ~WithBackend() { SetBackend(nullptr); }
};

class Refusal : WithBackend, public testing::Test
{
protected:
    /// Spoils the images and numbers of what the kernel would carry out.
    /// \param rFromZero  numbers that must not be negative
    /// \param rMost      numbers that stand at their upper limit
    template <class P>
    void mSpoil(bool (CBackend::*pRun)(const P&), const P& rGood,
                const std::vector<DeviceImage P::*>& rImages,
                const std::vector<int P::*>& rFromZero, const std::vector<int P::*>& rMost)
    {
        EXPECT_EQ((GetBackend()->*pRun)(rGood) ? "" : TakeDeviceError(), "");
        const auto Refused = [&](auto pMember, const auto& rBad)
        {
            P aParams = rGood;
            aParams.*pMember = rBad;
            EXPECT_FALSE((GetBackend()->*pRun)(aParams));
            EXPECT_NE(TakeDeviceError(), "");
        };
        for (const auto pImage : rImages)
        {
            for (const DeviceImage& rBad : {DeviceImage(), m_aTiny, m_aPair}) Refused(pImage, rBad);
            if ((rGood.*pImage).iLanes > 1) Refused(pImage, m_aRow);
            if ((rGood.*pImage).pvData == m_aIndex.pvData) Refused(pImage, m_aWrong);
        }
        for (const auto piNumber : rFromZero)
            for (const int iBad : {-1, INT_MIN}) Refused(piNumber, iBad);
        for (const auto piNumber : rMost)
            for (const int iBad : {rGood.*piNumber + 1, INT_MAX}) Refused(piNumber, iBad);
    }

    // Batches of 4 rows, 2 projections of 8 columns, slices of 8 x 4; the list names both.
    CRig m_aRig;
    const DeviceImage m_aVol = m_aRig.Array(Images(8, 4, 4), 1);
    const DeviceImage m_aProjs = m_aRig.Array(Images(8, 2, 4));
    const DeviceImage m_aCosSin = m_aRig.Pairs(2, {1, 1}, {0, 0});
    const DeviceImage m_aIndex = m_aRig.List({0, 1}), m_aWrong = m_aRig.List({0, 2});
    const DeviceImage m_aRow = m_aRig.Array(Images(8, 2, 1));
    const DeviceImage m_aPlain = m_aRig.Buffer(Images(8, 9, 1));
    const DeviceImage m_aTiny = m_aRig.Array(Images(1, 1, 4));
    const DeviceImage m_aPair = m_aRig.Pairs(1, {1}, {1});
};
}  // namespace

TEST_F(Refusal, OfKernels)
{
    using F = ForwardParams;
    mSpoil<F>(&CBackend::ForwardProject, {m_aProjs, m_aVol, m_aCosSin, m_aIndex, 8, 4, 8, 0, 2},
              {&F::aSums, &F::aVol, &F::aCosSin, &F::aProjIndex},
              {&F::iVolX, &F::iVolZ, &F::iProjX, &F::iFirst},
              {&F::iVolX, &F::iVolZ, &F::iProjX, &F::iEnd});
    using B = BackParams;
    const DeviceImage aRange = m_aRig.Pairs(4, std::vector<float>(8), std::vector<float>(8));
    mSpoil<B>(&CBackend::BackProject,
              {m_aVol, m_aProjs, m_aCosSin, m_aIndex, aRange, EUpdate::eEm, 1, 8, 4, 8, 0, 2, 0, 4},
              {&B::aVol, &B::aProjs, &B::aCosSin, &B::aProjIndex, &B::aRangeX},
              {&B::iVolX, &B::iVolZ, &B::iProjX, &B::iFirst, &B::iEnd, &B::iY},
              {&B::iVolX, &B::iVolZ, &B::iProjX, &B::iEnd, &B::iY, &B::iRows});
    EXPECT_TRUE(GetBackend()->ForwardProject({}) && GetBackend()->BackProject({}));  // no rows
    using C = CombineParams;
    mSpoil<C>(
        &CBackend::Combine, {m_aProjs, m_aProjs, m_aProjs, m_aIndex, ECombine::eDiff, 8, 0, 2},
        {&C::aOut, &C::aRaw, &C::aSums, &C::aProjIndex}, {&C::iFirst}, {&C::iProjX, &C::iEnd});
    using W = WeightParams;
    W aWeight = {m_aProjs, m_aProjs, m_aRow, {}, EWeight::eRef, 8, 0, 2};
    mSpoil<W>(&CBackend::Weight, aWeight, {&W::aOut, &W::aIn, &W::aWeight}, {&W::iFirst},
              {&W::iProjX, &W::iEnd});
    aWeight.eOperation = EWeight::eRecon;
    aWeight.aProjIndex = m_aIndex;
    mSpoil<W>(&CBackend::Weight, aWeight, {&W::aProjIndex}, {&W::iFirst}, {&W::iProjX, &W::iEnd});
    using S = SumAbsParams;
    mSpoil<S>(&CBackend::SumAbs, {m_aProjs, m_aRig.Doubles(2, 3), m_aIndex, 8, 2, 2, 4},
              {&S::aSource, &S::aAccum, &S::aProjIndex}, {&S::iProjX, &S::iIter},
              {&S::iProjX, &S::iProjs, &S::iIter, &S::iRows});
    using T = TransformParams;
    mSpoil<T>(&CBackend::Transform, {m_aPlain, m_aPlain, m_aRow, {}, {}, false, 8, 0, 9},
              {&T::aOut, &T::aMiss}, {&T::iProjX, &T::iStartY}, {&T::iProjX, &T::iRows});
    using K = CompareParams;
    const DeviceImage aSums = m_aRig.Buffer(Images(10, eCompareSums, 1));
    mSpoil<K>(&CBackend::CompareSums, {aSums, m_aPlain, m_aPlain, m_aPlain, 8, 1, 9},
              {&K::aSums, &K::aAligned, &K::aTransed, &K::aMiss}, {&K::iProjX, &K::iFirst},
              {&K::iProjX, &K::iFirst, &K::iRows});
    using V = SmoothParams;
    CDeviceArray3D aVol, aKernel;
    CPitchedPtr3D aOut;
    ASSERT_TRUE(aVol.Create(4, 3, 2) && aKernel.Create(1, 1025, 1) && aOut.Create(4, 3, 2));
    mSpoil<V>(&CBackend::Smooth, {aOut.GetImage(), aVol.GetImage(), m_aRow},
              {&V::aOut, &V::aVol, &V::aKernel}, {}, {});
    EXPECT_FALSE(GetBackend()->Smooth({aOut.GetImage(), aVol.GetImage(), aKernel.GetImage()}));
    EXPECT_FALSE(GetBackend()->Transform({m_aPlain, m_aPlain, {}, {}, {}, false, 8, 0, 9}));
    TakeDeviceError();
}

TEST_F(Refusal, OfMemoryNamesItsNumbers)
{
    CDeviceArray2D aArray;
    const Images aSmall(2, 2, 1);
    float afValues[4] = {};
    const DeviceImage aImage = m_aRig.Array(Images(4, 4, 1));
    const auto Note = [](bool bDone) { return std::pair{bDone, TakeDeviceError()}; };
    const auto Fill = [&](int iX, int iY, int iWidth)
    { return Note(GetBackend()->Upload(aImage, Borrow(aSmall), iX, iY, iWidth, 2)); };
    for (const auto& [aGot, pcExpected] :
         {std::pair{Note(aArray.Create(0, 3)), "0 x 3"},
          {Note(aArray.Create(1 << 30, 1 << 30)), "1073741824 x 1073741824"},
          {Note(aArray.HostToDevice(afValues)), "empty"},
          {Note(aArray.CreateLent(nullptr, 2, 2)), "lend array"},
          {Note(GetBackend()->SelectDevice(99)), "device 99 of "},
          {Note(GetBackend()->Copy(aImage, m_aPlain)), "8 x 9 x 1 to 4 x 4"},
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
