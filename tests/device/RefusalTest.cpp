// What would read or write beside an image is refused before any kernel sees it, with the numbers.

#include "gpulib/Device/DeviceArray3D.h"
#include "gpulib/Device/PitchedPtr3D.h"
#include "tests/device/Rig.h"

namespace
{
template <class P>
struct Bad
{
    const char* pcReason;
    void (*pSpoil)(P& r);
};

/// \param rGood  what the kernel carries out
template <class P>
void ExpectRefused(bool (CBackend::*pRun)(const P&), const P& rGood,
                   std::initializer_list<Bad<P>> vBad)
{
    CBackend& rBackend = *GetBackend();
    EXPECT_TRUE((rBackend.*pRun)(rGood)) << TakeDeviceError();
    for (const Bad<P>& rBad : vBad)
    {
        P aParams = rGood;
        rBad.pSpoil(aParams);
        EXPECT_FALSE((rBackend.*pRun)(aParams)) << rBad.pcReason;
        const std::string strReason = TakeDeviceError();
        EXPECT_NE(strReason.find(rBad.pcReason), std::string::npos) << strReason;
    }
}

class Refusal : public testing::Test
{
protected:
    // Batches of 5 rows, 2 projections of 8 columns, slices of 8 x 4; the list names both.
    Refusal()
    {
        SetBackend(MakeTestBackend("host", 1));
        m_pRig.emplace();
        m_aVol = m_pRig->Array(Images(8, 4, 5), 1);
        m_aProjs = m_pRig->Array(Images(8, 2, 5));
        m_aSums = m_pRig->Buffer(Images(8, 2, 5));
        m_aCosSin = m_pRig->Pairs(2, {1, 1}, {0, 0});
        m_aRange = m_pRig->Pairs(6, std::vector<float>(12), std::vector<float>(12));
        m_aIndex = m_pRig->List({0, 1});
        m_aWrongIndex = m_pRig->List({0, 2});
        m_aNarrow = m_pRig->Array(Images(7, 1, 5));
        m_aOneRow = m_pRig->Array(Images(8, 2, 1));
        m_aPlain = m_pRig->Buffer(Images(8, 9, 1));
    }
    ~Refusal() override
    {
        m_pRig.reset();
        SetBackend(nullptr);
    }
    std::optional<CRig> m_pRig;
    static inline DeviceImage m_aVol, m_aProjs, m_aSums, m_aCosSin, m_aRange, m_aIndex;
    static inline DeviceImage m_aWrongIndex, m_aNarrow, m_aOneRow, m_aPlain, m_aWide;
};
}  // namespace

TEST_F(Refusal, OfProjectors)
{
    using F = ForwardParams;
    const F aForward = {m_aSums, m_aVol, m_aCosSin, m_aIndex, 8, 4, 8, 0, 2};
    ExpectRefused<F>(&CBackend::ForwardProject, aForward,
                     {{"11 x 6", [](F& r) { r.iVolX = 9; }},
                      {"volume 0", [](F& r) { r.iVolX = 0; }},
                      {"slice", [](F& r) { r.iVolZ = 5; }},
                      {"8388608", [](F& r) { r.iVolZ = 1 << 23; }},
                      {"sums", [](F& r) { r.iProjX = 9; }},
                      {"-1 to 2", [](F& r) { r.iFirst = -1; }},
                      {"0 to 3", [](F& r) { r.iEnd = 3; }},
                      {"0 projections", [](F& r) { r.aProjIndex = {}; }},
                      {"projection 2", [](F& r) { r.aProjIndex = m_aWrongIndex; }},
                      {"angles", [](F& r) { r.aCosSin = m_aProjs; }},
                      {"slice", [](F& r) { r.aVol = m_aNarrow; }},
                      {"rows and", [](F& r) { r.aSums = m_aOneRow; }}});
    EXPECT_TRUE(GetBackend()->ForwardProject({}));  // no projections
    using B = BackParams;
    B aBack;
    aBack.aVol = m_aVol, aBack.aProjs = m_aProjs, aBack.aCosSin = m_aCosSin;
    aBack.aProjIndex = m_aIndex, aBack.aRangeX = m_aRange;
    aBack.iVolX = 8, aBack.iVolZ = 4, aBack.iProjX = 8, aBack.iEnd = 2, aBack.iRows = 5;
    ExpectRefused<B>(&CBackend::BackProject, aBack,
                     {{"slice", [](B& r) { r.iVolX = 9; }},
                      {"volume 8 x 0", [](B& r) { r.iVolZ = 0; }},
                      {"working rows", [](B& r) { r.iProjX = 9; }},
                      {"-1 to 2", [](B& r) { r.iFirst = -1; }},
                      {"2 to 1", [](B& r) { r.iFirst = 2, r.iEnd = 1; }},
                      {"0 to 3", [](B& r) { r.iEnd = 3; }},
                      {"projection 2", [](B& r) { r.aProjIndex = m_aWrongIndex; }},
                      {"row -1", [](B& r) { r.iY = -1; }},
                      {"row 2", [](B& r) { r.iY = 2; }},
                      {"row 2147483647", [](B& r) { r.iY = 2147483647; }},
                      {"9 rows", [](B& r) { r.iRows = 9; }},
                      {"of 2, batch", [](B& r) { r.aRangeX = m_aCosSin; }},
                      {"angles", [](B& r) { r.aCosSin = m_aIndex; }},
                      {"rows and 1", [](B& r) { r.aProjs = m_aOneRow; }}});
}

TEST_F(Refusal, OfRows)
{
    using C = CombineParams;
    const C aCombine = {m_aProjs, m_aProjs, m_aSums, m_aIndex, ECombine::eDiff, 8, 0, 2};
    ExpectRefused<C>(&CBackend::Combine, aCombine,
                     {{"sums is 8", [](C& r) { r.iProjX = 9; }},
                      {"-1 to 2", [](C& r) { r.iFirst = -1; }},
                      {"0 to 3", [](C& r) { r.iEnd = 3; }},
                      {"projection 2", [](C& r) { r.aProjIndex = m_aWrongIndex; }},
                      {"x 1 rows", [](C& r) { r.aRaw = m_aOneRow; }},
                      {"sums is 7", [](C& r) { r.aSums = m_aNarrow; }}});
    using W = WeightParams;
    const W aWeight = {m_aSums, m_aProjs, m_aOneRow, m_aIndex, EWeight::eRef, 8, 0, 2};
    ExpectRefused<W>(&CBackend::Weight, aWeight,
                     {{"result", [](W& r) { r.iProjX = 9; }},
                      {"row -1", [](W& r) { r.iFirst = -1; }},
                      {"result", [](W& r) { r.iEnd = 3; }},
                      {"weights", [](W& r) { r.aWeight = m_aNarrow; }},
                      {"x 1 rows", [](W& r) { r.aIn = m_aOneRow; }},
                      {"0 to 3", [](W& r) { r.eOperation = EWeight::eRecon, r.iEnd = 3; }},
                      {"projection 2", [](W& r)
                       { r.eOperation = EWeight::eReproj, r.aProjIndex = m_aWrongIndex; }}});
    using S = SumAbsParams;
    const S aSum = {m_aProjs, m_pRig->Doubles(2, 3), m_aIndex, 8, 2, 2, 5};
    ExpectRefused<S>(&CBackend::SumAbs, aSum,
                     {{"rows", [](S& r) { r.iProjX = 9; }},
                      {"0 columns", [](S& r) { r.iProjX = 0; }},
                      {"0 to 3", [](S& r) { r.iProjs = 3; }},
                      {"iteration 3", [](S& r) { r.iIter = 3; }},
                      {"iteration -1", [](S& r) { r.iIter = -1; }},
                      {"9 rows", [](S& r) { r.iRows = 9; }},
                      {"iteration 2 of 2", [](S& r) { r.aAccum = m_aSums; }},
                      {"projection 2", [](S& r) { r.aProjIndex = m_aWrongIndex; }}});
}

TEST_F(Refusal, OfAlignmentAndSmoothing)
{
    using T = TransformParams;
    T aTransform;
    aTransform.aOut = aTransform.aMiss = m_aPlain;
    aTransform.aMeasured = m_aOneRow;
    aTransform.iProjX = 8, aTransform.iRows = 9;
    ExpectRefused<T>(&CBackend::Transform, aTransform,
                     {{"result", [](T& r) { r.iProjX = 9; }},
                      {"0 x 9", [](T& r) { r.iProjX = 0; }},
                      {"result", [](T& r) { r.iRows = 10; }},
                      {"row -1", [](T& r) { r.iStartY = -1; }},
                      {"row 2147483647", [](T& r) { r.iStartY = 2147483647; }},
                      {"projection of 0 x 0", [](T& r) { r.aMeasured = {}; }},
                      {"mask", [](T& r) { r.aMiss = m_aOneRow; }}});
    using C = CompareParams;
    const C aCompare = {
        m_pRig->Buffer(Images(10, eCompareSums, 1)), m_aPlain, m_aPlain, m_aPlain, 8, 1, 9};
    ExpectRefused<C>(&CBackend::CompareSums, aCompare,
                     {{"projection", [](C& r) { r.iProjX = 9; }},
                      {"row -1", [](C& r) { r.iFirst = -1; }},
                      {"row 2", [](C& r) { r.iFirst = 2; }},
                      {"10 rows", [](C& r) { r.iRows = 10; }},
                      {"row 1 of 8", [](C& r) { r.aSums = m_aOneRow; }},
                      {"mask", [](C& r) { r.aMiss = m_aOneRow; }}});
    CDeviceArray3D aVol, aKernel;
    CPitchedPtr3D aOut;
    ASSERT_TRUE(aVol.Create(4, 3, 2) && aKernel.Create(1, 1025, 1) && aOut.Create(4, 3, 2));
    const SmoothParams aSmooth = {aOut.GetImage(), aVol.GetImage(), m_aOneRow};
    using S = SmoothParams;
    m_aWide = aKernel.GetImage();
    ExpectRefused<S>(&CBackend::Smooth, aSmooth,
                     {{"1025", [](S& r) { r.aKernel = m_aWide; }},
                      {"channels", [](S& r) { r.aKernel = m_aSums; }},
                      {"channels", [](S& r) { r.aKernel = {}; }},
                      {"channels", [](S& r) { r.aVol = {}; }},
                      {"to 8 x 9", [](S& r) { r.aOut = m_aPlain; }}});
}
