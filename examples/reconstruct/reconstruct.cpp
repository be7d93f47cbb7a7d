// A reconstruction with the client library: 20 iterations of SART on a private server.
//   reconstruct ts.mrc ts.tlt THICKNESS rec.mrc

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "talven/Angles.h"
#include "talven/FileImages.h"
#include "talven/MrcReader.h"
#include "talven/Reconstruction.h"

namespace
{

int Fail(const std::string& strError)
{
    std::fprintf(stderr, "reconstruct: %s\n", strError.c_str());
    return 1;
}

/// Shows how far a transfer is.
class CDots : public talven::CMonitor
{
public:
    void Step(int) override { std::fputc('.', stderr); }
    void End() override { std::fputc('\n', stderr); }
};

}  // namespace

int main(int iArgs, char** ppcArgs)
{
    if (iArgs != 5) return Fail("usage: reconstruct ts.mrc ts.tlt THICKNESS rec.mrc");

    talven::CMrcReader aStack;
    std::vector<float> vfAngles;
    std::string strError;
    if (!aStack.Open(ppcArgs[1])) return Fail(aStack.GetError());
    if (!talven::ReadAngles(ppcArgs[2], vfAngles, strError)) return Fail(strError);
    const talven::MrcHeader& rHeader = aStack.GetHeader();

    // Four subsets, each of which spreads over the whole tilt range.
    talven::ReconRequest aRequest;
    aRequest.iThickness = std::atoi(ppcArgs[3]);
    aRequest.iIterations = 20;
    aRequest.iSubsets = 4;
    aRequest.aRelax.vdFactors = {0.5};
    talven::ReconPlan aPlan;
    if (int(vfAngles.size()) != rHeader.iZ || aRequest.iThickness < 1)
        return Fail("angles or thickness do not fit");
    if (!talven::MakeReconPlan(aRequest, {rHeader.iX, rHeader.iY}, vfAngles, aPlan, strError))
        return Fail(strError);
    talven::CMrcWriter aVolume;
    if (!aVolume.Create(ppcArgs[4], aPlan.aSize.iVolX, aPlan.aSize.iProjY, aPlan.aSize.iVolZ,
                        rHeader.dPixel, true, aPlan.DescribeMethod()))
        return Fail(aVolume.GetError());

    CDots aDots;
    talven::CServerLink aLink;
    if (!aLink.Connect({}, aDots)) return Fail(aLink.GetError());
    talven::CReconstruction aJob(aLink, aDots);
    if (!aJob.Upload(aPlan, talven::ReadFrom(aStack)) || !aJob.Run() ||
        !aJob.Download(talven::WriteTo(aVolume)))
        return Fail(aJob.GetError());
    for (std::size_t i = 0; i < aJob.GetRfactors().size(); ++i)
        std::printf("iteration %2zu: R-factor %.4f\n", i + 1, aJob.GetRfactors()[i]);
    return aVolume.Finish() ? 0 : Fail(aVolume.GetError());
}
