#include "Preview.h"
#include "ResidualPlot.h"
#include "RfactorPlot.h"
#include "RunReport.h"
#include "talven/Text.h"

namespace talven
{
namespace
{

bool DrawAll(const CSlices& rSlices, RunReport& rReport, std::string& rError)
{
    const std::vector<CPicture> aPictures = DrawSlices(rSlices);
    for (std::size_t i = 0; i < aPictures.size(); ++i)
    {
        const Slice& rSlice = rSlices.Get()[i];
        PagePicture& rPicture = rReport.aSlices.emplace_back();
        rPicture.strAlt = Format("%s slice", GetSliceName(rSlice));
        rPicture.strCaption = Format("%s at %c = %d, %d × %d", GetSliceName(rSlice), rSlice.cAxis,
                                     rSlice.iAt, rSlice.iWidth, rSlice.iHeight);
        if (!aPictures[i].Encode(rPicture.vcPng, rError)) return false;
    }
    return true;
}

bool DrawRfactorPlot(RunReport& rReport, std::string& rError)
{
    const std::vector<double>& rRfactors = rReport.vdRfactors;
    PagePicture& rPicture = rReport.aRfactorPlot.emplace();
    rPicture.strAlt = "Plot of the R-factor";
    rPicture.strCaption = Format("%.4g after the first iteration", rRfactors.front());
    if (rRfactors.size() > 1)
        rPicture.strCaption += Format(", %.4g after %zu", rRfactors.back(), rRfactors.size());
    return DrawRfactors(rRfactors, "").Encode(rPicture.vcPng, rError);
}

bool DrawResidualPlot(RunReport& rReport, std::string& rError)
{
    std::vector<ViewQuality> aViews;
    std::vector<int> viNumbers;
    std::vector<float> vfAngles;
    for (const RunReport::View& rView : rReport.aViews)
    {
        aViews.push_back(rView.aQuality);
        viNumbers.push_back(rView.iNumber);
        vfAngles.push_back(rView.fAngle);
    }
    PagePicture& rPicture = rReport.aResidualPlot.emplace();
    rPicture.strAlt = "Plot of the residuals over the angles";
    rPicture.strCaption =
        "Sum of |measured - reprojected| over the sum of |measured| of each view after the last "
        "iteration; suspect views are red, with their numbers";
    return DrawResiduals(aViews, viNumbers, vfAngles).Encode(rPicture.vcPng, rError);
}

}  // namespace

bool DrawPictures(const CSlices& rSlices, RunReport& rReport, std::string& rError)
{
    return DrawAll(rSlices, rReport, rError) &&
           (rReport.vdRfactors.empty() ||
            (DrawRfactorPlot(rReport, rError) && DrawResidualPlot(rReport, rError)));
}

}  // namespace talven
