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
    static void mExpectRefused(bool bDone)
    {
        EXPECT_FALSE(bDone);
        EXPECT_NE(TakeDeviceError(), "");
    }

    /// Spoils the images and numbers of what the kernel would carry out.
    /// \param rFromZero  numbers that must not be negative
    /// \param rMost      numbers that stand at their upper limit
    template <class P>
    void mSpoil(bool (CBackend::*pRun)(const P&), const P& rGood,
                const std::vector<DeviceImage P::*>& rImages,
                const std::vector<int P::*>& rFromZero, const std::vector<int P::*>& rMost)
    {
        EXPECT_TRUE((GetBackend()->*pRun)(rGood)) << TakeDeviceError();
        const auto Refused = [&](auto pMember, const auto& rBad)
        {
            P aParams = rGood;
            aParams.*pMember = rBad;
            mExpectRefused((GetBackend()->*pRun)(aParams));
        };
        for (std::size_t i = 0; i < rImages.size(); ++i)
            for (const DeviceImage& rBad : {DeviceImage(), m_aTiny, m_aPair})
            {
                SCOPED_TRACE(testing::Message() << "image " << i << ", " << rBad.iChannels);
                Refused(rImages[i], rBad);
            }
        for (std::size_t i = 0; i < rFromZero.size() + rMost.size(); ++i)
        {
            SCOPED_TRACE(testing::Message() << "number " << i);
            const bool bMost = i >= rFromZero.size();
            const auto piNumber = bMost ? rMost[i - rFromZero.size()] : rFromZero[i];
            Refused(piNumber, bMost ? rGood.*piNumber + 1 : -1);
            Refused(piNumber, bMost ? INT_MAX : INT_MIN);
        }
    }

    // Batches of 4 rows, 2 projections of 8 columns, slices of 8 x 4; the list names both.
    CRig m_aRig;
    const DeviceImage m_aVol = m_aRig.Array(Images(8, 4, 4), 1);
    const DeviceImage m_aProjs = m_aRig.Array(Images(8, 2, 4));
    const DeviceImage m_aCosSin = m_aRig.Pairs(2, {1, 1}, {0, 0});
    const DeviceImage m_aIndex = m_aRig.List({0, 1});
    const DeviceImage m_aRow = m_aRig.Array(Images(8, 2, 1));
    const DeviceImage m_aPlain = m_aRig.Buffer(Images(8, 9, 1));
    const DeviceImage m_aTiny = m_aRig.Array(Images(1, 1, 4));
    const DeviceImage m_aPair = m_aRig.Pairs(1, {1}, {1});
};
}  // namespace

TEST_F(Refusal, OfProjectors)
{
    using F = ForwardParams;
    F aForward = {m_aProjs, m_aVol, m_aCosSin, m_aIndex, 8, 4, 8, 0, 2};
    mSpoil<F>(&CBackend::ForwardProject, aForward,
              {&F::aSums, &F::aVol, &F::aCosSin, &F::aProjIndex},
              {&F::iVolX, &F::iVolZ, &F::iProjX, &F::iFirst},
              {&F::iVolX, &F::iVolZ, &F::iProjX, &F::iEnd});
    aForward.aSums = m_aRow;  // of another batch
    mExpectRefused(GetBackend()->ForwardProject(aForward));
    using B = BackParams;
    const DeviceImage aRange = m_aRig.Pairs(4, std::vector<float>(8), std::vector<float>(8));
    B aBack = {m_aVol, m_aProjs, m_aCosSin, m_aIndex, aRange, EUpdate::eEm, 1, 8, 4, 8, 0, 2, 0, 4};
    mSpoil<B>(&CBackend::BackProject, aBack,
              {&B::aVol, &B::aProjs, &B::aCosSin, &B::aProjIndex, &B::aRangeX},
              {&B::iVolX, &B::iVolZ, &B::iProjX, &B::iFirst, &B::iEnd, &B::iY},
              {&B::iVolX, &B::iVolZ, &B::iProjX, &B::iEnd, &B::iY, &B::iRows});
    aBack.aProjs = m_aRow;
    mExpectRefused(GetBackend()->BackProject(aBack));
    EXPECT_TRUE(GetBackend()->ForwardProject({}) && GetBackend()->BackProject({}));  // no rows
}

TEST_F(Refusal, OfRows)
{
    using C = CombineParams;
    C aCombine = {m_aProjs, m_aProjs, m_aProjs, m_aIndex, ECombine::eDiff, 8, 0, 2};
    mSpoil<C>(&CBackend::Combine, aCombine, {&C::aOut, &C::aRaw, &C::aSums, &C::aProjIndex},
              {&C::iFirst}, {&C::iProjX, &C::iEnd});
    aCombine.aRaw = m_aRow;
    mExpectRefused(GetBackend()->Combine(aCombine));
    using W = WeightParams;
    W aWeight = {m_aProjs, m_aProjs, m_aRow, m_aIndex, EWeight::eRef, 8, 0, 2};
    mSpoil<W>(&CBackend::Weight, aWeight, {&W::aOut, &W::aIn, &W::aWeight}, {&W::iFirst},
              {&W::iProjX, &W::iEnd});
    aWeight.eOperation = EWeight::eRecon;
    mSpoil<W>(&CBackend::Weight, aWeight, {&W::aOut, &W::aIn, &W::aWeight, &W::aProjIndex},
              {&W::iFirst}, {&W::iProjX, &W::iEnd});
    aWeight.aIn = m_aRow;
    mExpectRefused(GetBackend()->Weight(aWeight));
    using S = SumAbsParams;
    const S aSum = {m_aProjs, m_aRig.Doubles(2, 3), m_aIndex, 8, 2, 2, 4};
    mSpoil<S>(&CBackend::SumAbs, aSum, {&S::aSource, &S::aAccum, &S::aProjIndex},
              {&S::iProjX, &S::iIter}, {&S::iProjX, &S::iProjs, &S::iIter, &S::iRows});
    const DeviceImage aWrong = m_aRig.List({0, 2});  // of 2 projections
    aCombine = {m_aProjs, m_aProjs, m_aProjs, aWrong, ECombine::eDiff, 8, 0, 2};
    mExpectRefused(GetBackend()->Combine(aCombine));
    mExpectRefused(
        GetBackend()->ForwardProject({m_aProjs, m_aVol, m_aCosSin, aWrong, 8, 4, 8, 0, 2}));
    mExpectRefused(GetBackend()->SumAbs({m_aProjs, aSum.aAccum, aWrong, 8, 2, 0, 4}));
}

TEST_F(Refusal, OfAlignmentAndSmoothing)
{
    using T = TransformParams;
    T aTransform = {m_aPlain, m_aPlain, m_aRow};
    aTransform.iProjX = 8;
    aTransform.iRows = 9;
    mSpoil<T>(&CBackend::Transform, aTransform, {&T::aOut, &T::aMiss}, {&T::iProjX, &T::iStartY},
              {&T::iProjX, &T::iRows});
    aTransform.aMeasured = {};
    mExpectRefused(GetBackend()->Transform(aTransform));
    using C = CompareParams;
    const C aCompare = {
        m_aRig.Buffer(Images(10, eCompareSums, 1)), m_aPlain, m_aPlain, m_aPlain, 8, 1, 9};
    mSpoil<C>(&CBackend::CompareSums, aCompare, {&C::aSums, &C::aAligned, &C::aTransed, &C::aMiss},
              {&C::iProjX, &C::iFirst}, {&C::iProjX, &C::iFirst, &C::iRows});
    using S = SmoothParams;
    CDeviceArray3D aVol, aKernel;
    CPitchedPtr3D aOut;
    ASSERT_TRUE(aVol.Create(4, 3, 2) && aKernel.Create(1, 1025, 1) && aOut.Create(4, 3, 2));
    S aSmooth = {aOut.GetImage(), aVol.GetImage(), m_aRow};
    mSpoil<S>(&CBackend::Smooth, aSmooth, {&S::aOut, &S::aVol, &S::aKernel}, {}, {});
    aSmooth.aKernel = aKernel.GetImage();
    mExpectRefused(GetBackend()->Smooth(aSmooth));
}
