// Kernels that stream over projection rows. Included inside the namespace of an instruction set.

/// One element of a measured row, weighted.
template <int LANES>
DEVICE_FN Lanes<LANES> LoadTimes(const float* pfLanes, float fWeight)
{
    Lanes<LANES> aValue = Load<LANES>(pfLanes);
    const Lanes<LANES> aWeight = Fill<LANES>(fWeight);
#pragma GCC unroll 16
    for (int k = 0; k < Lanes<LANES>::iCount; ++k) aValue.av[k] *= aWeight.av[k];
    return aValue;
}

template <int LANES>
static void CombineLanes(const CombineParams& rP, const int* piRows, Share aRows)
{
    using L = Lanes<LANES>;
    const CompareRule& rRule = rP.aRule;
    for (int i = aRows.iFirst; i < aRows.iEnd; ++i)
    {
        const float* pfRaw = RowOf(rRule.aRaw, piRows[i]);
        const float* pfWeight = RowOf(rRule.aWeight, piRows[i]);
        const float* pfAfter = rRule.aAfter.pvData ? RowOf(rRule.aAfter, piRows[i]) : nullptr;
        float* pfSums = RowOf(rP.aSums, piRows[i]);
        for (int x = 0; x < rP.iProjX; ++x)
        {
            const std::size_t t = static_cast<std::size_t>(x) * LANES;
            L aRaw = LoadTimes<LANES>(pfRaw + t, pfWeight[x]);
            const L aSum = Load<LANES>(pfSums + t);
            const L aAfter = Fill<LANES>(pfAfter ? pfAfter[x] : 1.0f);
#pragma GCC unroll 16
            for (int k = 0; k < L::iCount; ++k)
                aRaw.av[k] =
                    CompareValue<typename L::Vector>(rRule.eOperation, aRaw.av[k], aSum.av[k]) *
                    aAfter.av[k];
            Store<LANES>(pfSums + t, aRaw);
        }
    }
}

template <int LANES>
static void WeightLanes(const WeightParams& rP, const int* piRows, Share aRows)
{
    using L = Lanes<LANES>;
    for (int i = aRows.iFirst; i < aRows.iEnd; ++i)
    {
        const float* pfIn = RowOf(rP.aIn, piRows[i]);
        float* pfOut = RowOf(rP.aOut, piRows[i]);
        const float* pfWeight =
            rP.eOperation == EWeight::eCopy ? nullptr : RowOf(rP.aWeight, piRows[i]);
        for (int x = 0; x < rP.iProjX; ++x)
        {
            const std::size_t t = static_cast<std::size_t>(x) * LANES;
            L aValue = Load<LANES>(pfIn + t);
            if (pfWeight)
            {
                const L aWeight = Fill<LANES>(pfWeight[x]);
#pragma GCC unroll 16
                for (int k = 0; k < L::iCount; ++k)
                    aValue.av[k] = rP.eOperation == EWeight::eReproj ? aValue.av[k] / aWeight.av[k]
                                                                     : aValue.av[k] * aWeight.av[k];
            }
            Store<LANES>(pfOut + t, aValue);
        }
    }
}

/// Sum of one row per lane: partial sums by stride, then a tree. The row counts as a multiple of so
/// many columns; those past its end repeat the last pixel.
template <int LANES>
static void SumAbsLanes(const SumAbsParams& rP, const int* piRows, Share aRows, float* pfTotals)
{
    using L = Lanes<LANES>;
    const int iSegments = (rP.iProjX + g_iPartialSums - 1) / g_iPartialSums;
    alignas(64) float afPartial[g_iPartialSums * LANES];
    for (int i = aRows.iFirst; i < aRows.iEnd; ++i)
    {
        const float* pfRow = RowOf(rP.aSource, piRows[i]);
        const float* pfWeight = RowOf(rP.aWeight, piRows[i]);
        const float* pfMinus = rP.aMinus.pvData ? RowOf(rP.aMinus, piRows[i]) : nullptr;
        for (int t = 0; t < g_iPartialSums; ++t)
        {
            L aSum = Fill<LANES>(0.0f);
            for (int s = 0; s < iSegments; ++s)
            {
                const int iColumn = t + s * g_iPartialSums;
                const int iX = iColumn < rP.iProjX ? iColumn : rP.iProjX - 1;
                const std::size_t tAt = static_cast<std::size_t>(iX) * LANES;
                L aValue = LoadTimes<LANES>(pfRow + tAt, pfWeight[iX]);
                if (pfMinus)
                {
                    const L aMinus = Load<LANES>(pfMinus + tAt);
#pragma GCC unroll 16
                    for (int k = 0; k < L::iCount; ++k) aValue.av[k] -= aMinus.av[k];
                }
#pragma GCC unroll 16
                for (int k = 0; k < L::iCount; ++k)
                    aSum.av[k] += AbsIfPresent<typename L::Vector>(aValue.av[k]);
            }
            Store<LANES>(afPartial + t * LANES, aSum);
        }
        for (int iStride = g_iPartialSums / 2; iStride > 0; iStride /= 2)
            for (int t = 0; t < iStride; ++t)
                Store<LANES>(afPartial + t * LANES,
                             Add<LANES>(Load<LANES>(afPartial + t * LANES),
                                        Load<LANES>(afPartial + (t + iStride) * LANES)));
        Store<LANES>(pfTotals + static_cast<std::size_t>(i) * LANES, Load<LANES>(afPartial));
    }
}
