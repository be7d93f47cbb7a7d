#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "gpulib/App/Iteration/SetSize.h"

TEST(SetSize, DividesTheList)
{
    using Ranges = std::vector<std::pair<int, int>>;
    struct Case
    {
        unsigned uiProjs;
        unsigned uiSets;
        std::vector<unsigned> vuiSizes;
        Ranges vExpected;
    };
    const Case aCases[] = {
        {61, 4, {}, {{0, 16}, {16, 31}, {31, 46}, {46, 61}}},
        {10, 3, {}, {{0, 4}, {4, 7}, {7, 10}}},
        {3, 5, {}, {{0, 1}, {1, 2}, {2, 3}, {3, 3}, {3, 3}}},
        {10, 3, {4, 4, 4}, {{0, 4}, {4, 8}, {8, 10}}},
        {10, 2, {2, 3}, {{0, 2}, {2, 5}}},
        {10, 1, {60}, {{0, 10}}},
        // Sums beyond 32 bits stay at the end of the list.
        {10, 3, {4294967295, 2, 3}, {{0, 10}, {10, 10}, {10, 10}}},
    };
    CSetSize aSetSize;
    for (const Case& rCase : aCases)
    {
        SCOPED_TRACE(testing::Message() << rCase.uiProjs << " in " << rCase.uiSets);
        aSetSize.SetNumProjs(rCase.uiProjs);
        aSetSize.SetNumSets(rCase.uiSets, rCase.vuiSizes);
        aSetSize.Calculate();
        Ranges vRanges;
        for (unsigned s = 0; s < aSetSize.GetNumSets(); ++s)
        {
            const SetRange aRange = aSetSize.GetSetRange(s);
            vRanges.emplace_back(aRange.iFirst, aRange.iEnd);
        }
        EXPECT_EQ(vRanges, rCase.vExpected);
        EXPECT_EQ(aSetSize.GetFullRange().iEnd, int(rCase.uiProjs));
    }
}
