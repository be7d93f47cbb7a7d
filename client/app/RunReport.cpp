#include "RunReport.h"

#include <algorithm>
#include <cmath>

#include "Html.h"
#include "Page.h"
#include "talven/Text.h"

namespace talven
{
namespace
{

constexpr const char* g_pcMain = R"(<section>
<h2>Views to look at</h2>
[[suspects]]</section>
<section>
<h2>Central slices</h2>
<div class="slices">
[[slices]]</div>
</section>
<section>
<h2>R-factor of every iteration</h2>
[[rfactors]]</section>
<section>
<h2>Residual of every view</h2>
[[residuals]]</section>
<section>
<h2>The run</h2>
<div class="facts">
[[facts]]</div>
</section>
<section>
<h2>Command to repeat it</h2>
<pre><code>[[command]]</code></pre>
</section>
<section>
<h2>All views</h2>
<p class="note">Expected: the residual that the neighbours by angle tell. Score: of the residual, in robust standard deviations above the course a + b / cos(angle) of all. A residual stands out with a score above 4 when it is more than a third above the expected one. Mean, SD, least and most are of the pixels before they were sent; dark and bright views have a mean far off its course, blank ones hardly any contrast.</p>
[[views]]</section>
)";

constexpr const char* g_pcNoRfactors =
    "<p>A back projection has none: nothing is projected again and compared.</p>\n";

std::string Number(double dValue)
{
    return std::isfinite(dValue) ? Format("%.4g", dValue) : "–";
}

std::string PixelValue(double dValue)
{
    return Format("%.5g", dValue);
}

std::string MakeViewTable(const RunReport& rReport, bool bSuspectsOnly)
{
    std::string strTable = "<table>\n<thead>" +
                           MakeRow({"View", "Angle", "Residual", "Expected", "Score", "Mean", "SD",
                                    "Least", "Most", "Missing", ""},
                                   10, true) +
                           "</thead>\n<tbody>\n";
    for (const RunReport::View& rView : rReport.aViews)
    {
        const ViewQuality& rQuality = rView.aQuality;
        const ImageStatistics& rPixels = rQuality.aPixels;
        if (bSuspectsOnly && !rQuality.IsSuspect()) continue;
        const auto dAll = static_cast<double>(rPixels.tValues + rPixels.tMissing);
        const bool bResidual = std::isfinite(rQuality.dResidual);
        strTable +=
            MakeRow({Format("%d", rView.iNumber), Format("%g°", double(rView.fAngle)),
                     Number(rQuality.dResidual), Number(rQuality.dExpected),
                     bResidual ? Format("%.1f", rQuality.dScore) : "–", PixelValue(rPixels.dMean),
                     PixelValue(rPixels.GetSd()), PixelValue(double(rPixels.fMin)),
                     PixelValue(double(rPixels.fMax)),
                     Format("%.3g %%", 100 * double(rPixels.tMissing) / std::max(1.0, dAll)),
                     DescribeSuspicion(rQuality)},
                    10, false, rQuality.IsSuspect());
    }
    return strTable + "</tbody>\n</table>\n";
}

std::string MakeSuspects(const RunReport& rReport)
{
    const auto iBad = std::ranges::count_if(
        rReport.aViews, [](const RunReport::View& rView) { return rView.aQuality.IsSuspect(); });
    const std::string strJudged = rReport.aResidualPlot
                                      ? "brightness, contrast and residual"
                                      : "brightness and contrast; there are no residuals";
    if (iBad == 0) return "<p>None stands out, judged by " + strJudged + ".</p>\n";
    return Format("<p class=\"bad\"><strong>%zd of %zu views stand%s out</strong>, judged by ",
                  iBad, rReport.aViews.size(), iBad == 1 ? "s" : "") +
           strJudged + ". " +
           (iBad < 3 ? "" : "Several in a row point to the alignment instead. ") +
           "Leave them out and look again:</p>\n<pre><code>" +
           EscapeHtml(rReport.strWithoutSuspects) + "</code></pre>\n" +
           MakeViewTable(rReport, true);
}

std::string MakeRfactors(const RunReport& rReport)
{
    if (!rReport.aRfactorPlot) return g_pcNoRfactors;
    std::string strHtml = MakeFigure(*rReport.aRfactorPlot, "plot");
    strHtml += "<details><summary>The numbers</summary>\n<table>\n<thead>" +
               MakeRow({"Iteration", "R-factor"}, 2, true) + "</thead>\n<tbody>\n";
    for (std::size_t i = 0; i < rReport.vdRfactors.size(); ++i)
        strHtml += MakeRow({Format("%zu", i + 1), Number(rReport.vdRfactors[i])}, 2, false);
    return strHtml + "</tbody>\n</table>\n</details>\n";
}

}  // namespace

std::string DescribeSuspicion(const ViewQuality& rQuality)
{
    constexpr const char* apcFaults[] = {"", "blank", "dark", "bright"};
    std::string strText = apcFaults[static_cast<std::size_t>(rQuality.eFault)];
    if (rQuality.StandsOut()) strText += strText.empty() ? "residual" : ", residual";
    return strText;
}

std::string MakePage(const RunReport& rReport)
{
    std::string strSlices;
    for (const PagePicture& rSlice : rReport.aSlices) strSlices += MakeFigure(rSlice, "slice");
    const std::string strMain = FillTemplate(
        g_pcMain, {{"suspects", MakeSuspects(rReport)},
                   {"slices", strSlices},
                   {"rfactors", MakeRfactors(rReport)},
                   {"residuals", rReport.aResidualPlot ? MakeFigure(*rReport.aResidualPlot, "plot")
                                                       : g_pcNoRfactors},
                   {"facts", MakeTables(rReport.aTables)},
                   {"command", EscapeHtml(rReport.strCommand)},
                   {"views", MakeViewTable(rReport, false)}});
    return MakePage(rReport.strTitle, rReport.strSummary, strMain);
}

}  // namespace talven
