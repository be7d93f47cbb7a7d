// A reconstruction with the client library: 20 iterations of SART on a private server.
//   reconstruct ts.mrc ts.tlt THICKNESS rec.mrc

#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <string>
#include <vector>

#include "talven/Angles.h"
#include "talven/MrcReader.h"
#include "talven/MrcWriter.h"
#include "talven/PrivateServer.h"
#include "talven/Schedule.h"

namespace
{

int Fail(const std::string& strError)
{
    std::fprintf(stderr, "reconstruct: %s\n", strError.c_str());
    return 1;
}

}  // namespace

int main(int iArgs, char** ppcArgs)
{
    if (iArgs != 5) return Fail("usage: reconstruct ts.mrc ts.tlt THICKNESS rec.mrc");
    const int iZ = std::atoi(ppcArgs[3]);

    talven::CMrcReader aStack;
    std::vector<float> vfAngles;
    std::string strError;
    if (!aStack.Open(ppcArgs[1])) return Fail(aStack.GetError());
    if (!talven::ReadAngles(ppcArgs[2], vfAngles, strError)) return Fail(strError);
    const talven::MrcHeader& rHeader = aStack.GetHeader();
    if (int(vfAngles.size()) != rHeader.iZ || iZ < 1) return Fail("angles or thickness do not fit");

    talven::CPrivateServer aServer;
    talven::CSession aSession;
    if (!aServer.Start({}, aSession)) return Fail(aServer.GetError());

    // Four subsets, each of which spreads over the whole tilt range.
    talven::ReconOptions aOptions;
    aOptions.iIterations = 20;
    aOptions.vuiSetSizes = talven::DivideIntoSubsets(rHeader.iZ, 4);
    aOptions.vfRelax.assign(std::size_t(aOptions.iIterations) * 4, 0.5f);
    std::vector<std::uint32_t> vuiAll(vfAngles.size());
    std::iota(vuiAll.begin(), vuiAll.end(), 0u);

    std::vector<float> vfPixels(rHeader.GetSectionPixels());
    bool bDone = aSession.SetStackSize(rHeader.iX, rHeader.iY, vfAngles);
    for (int i = 0; bDone && i < rHeader.iZ; ++i)
    {
        if (!aStack.ReadSection(i, vfPixels)) return Fail(aStack.GetError());
        bDone = aSession.SetProjection(i, vfPixels);
    }
    bDone = bDone && aSession.SetVolumeSize(rHeader.iX, rHeader.iY, iZ) &&
            aSession.SelectProjections(
                talven::InterleaveSubsets(vuiAll, vfAngles, aOptions.vuiSetSizes)) &&
            aSession.SetReconOptions(aOptions) && aSession.SetWeightBox(nullptr) &&
            aSession.Reconstruct();
    for (int i = 0; bDone && i < aOptions.iIterations; ++i)
    {
        std::vector<talven::RfactorSums> aSums;
        bDone = aSession.GetRfactors(i, aSums);
        if (bDone) std::printf("iteration %2d: R-factor %.4f\n", i + 1, talven::CalcRfactor(aSums));
    }

    talven::CMrcWriter aVolume;
    if (bDone && !aVolume.Create(ppcArgs[4], rHeader.iX, rHeader.iY, iZ, rHeader.dPixel, true,
                                 "SART, 20 iterations"))
        return Fail(aVolume.GetError());
    bDone = bDone && aSession.GetSlices(iZ, rHeader.GetSectionPixels(),
                                        [&](int, std::span<const float> fSlice)
                                        { return aVolume.WriteSection(fSlice); });
    if (!bDone) return Fail(aSession.GetError() + " " + aServer.GetServerError());
    return aVolume.Finish() ? 0 : Fail(aVolume.GetError());
}
