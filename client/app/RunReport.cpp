#include "RunReport.h"

#include <algorithm>
#include <cmath>

#include "Html.h"
#include "talven/Text.h"

namespace talven
{
namespace
{

constexpr const char* g_pcPage = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; img-src data:; style-src 'unsafe-inline'">
<title>[[title]]</title>
<style>
:root { color-scheme: light dark; --line: #d5d9de; --faint: #5b6470; --bad: #b3261e; --box: #f4f6f8; }
body { font: 16px/1.5 system-ui, sans-serif; max-width: 62rem; margin: 2rem auto; padding: 0 1rem; }
h1 { font-size: 1.6rem; margin: 0; overflow-wrap: anywhere; }
h2 { font-size: 1.15rem; margin: 2.2rem 0 .6rem; border-bottom: 1px solid var(--line); }
h3 { font-size: 1rem; margin: 0 0 .3rem; }
p { margin: .4rem 0; }
table { border-collapse: collapse; font-size: .92rem; }
caption { text-align: left; color: var(--faint); padding-bottom: .3rem; }
th, td { text-align: left; vertical-align: top; padding: .15rem .9rem .15rem 0; border-bottom: 1px solid var(--line); }
td.n, th.n { text-align: right; font-variant-numeric: tabular-nums; }
.facts { display: grid; grid-template-columns: repeat(auto-fit, minmax(26rem, 1fr)); gap: 1.5rem 2.5rem; }
.facts table { width: 100%; }
.facts th { font-weight: normal; color: var(--faint); width: 11rem; }
.facts td { overflow-wrap: anywhere; }
.slices { display: flex; flex-wrap: wrap; gap: 1rem; align-items: flex-start; }
figure { margin: 0; }
figcaption, .note { color: var(--faint); font-size: .9rem; }
img { display: block; max-width: 100%; height: auto; }
tr.bad, .bad { color: var(--bad); }
pre { background: var(--box); padding: .7rem .9rem; border-radius: .3rem; white-space: pre-wrap; overflow-wrap: anywhere; }
summary { cursor: pointer; margin: .6rem 0; }
@media (max-width: 34rem) { .facts { grid-template-columns: 1fr; } }
@media (prefers-color-scheme: dark) {
  :root { --line: #3a4048; --faint: #a3acb8; --bad: #ff8a80; --box: #22262b; }
  img.plot { filter: invert(.9) hue-rotate(180deg); }
}
@media print {
  body { max-width: none; margin: 0; font-size: 11pt; }
  h2 { break-after: avoid; }
  figure, tr, pre { break-inside: avoid; }
}
</style>
</head>
<body>
<header>
<h1>[[title]]</h1>
<p>[[summary]]</p>
</header>
<main>
<section>
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
</main>
</body>
</html>
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

std::string MakeFigure(const RunReport::Picture& rPicture, const char* pcClass)
{
    return Format("<figure><img class=\"%s\" alt=\"", pcClass) + EscapeHtml(rPicture.strAlt) +
           "\" src=\"" + MakeDataUri(rPicture.vcPng) + "\"><figcaption>" +
           EscapeHtml(rPicture.strCaption) + "</figcaption></figure>\n";
}

/// A row of a table; the first iNumbers cells after the heading are numbers.
std::string MakeRow(const std::vector<std::string>& rCells, std::size_t tNumbers, bool bHeadings,
                    bool bBad = false)
{
    std::string strRow = bBad ? "<tr class=\"bad\">" : "<tr>";
    for (std::size_t i = 0; i < rCells.size(); ++i)
    {
        const bool bHeading = bHeadings || i == 0;
        const char* pcTag = bHeading ? "th" : "td";
        strRow += Format("<%s%s%s>", pcTag,
                         !bHeading   ? ""
                         : bHeadings ? " scope=\"col\""
                                     : " scope=\"row\"",
                         i < tNumbers ? " class=\"n\"" : "");
        strRow += EscapeHtml(rCells[i]) + Format("</%s>", pcTag);
    }
    return strRow + "</tr>\n";
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

std::string MakeFacts(const RunReport& rReport)
{
    std::string strHtml;
    for (const auto& [strHeading, rFacts] : rReport.aTables)
    {
        if (rFacts.empty()) continue;
        strHtml += "<div><h3>" + EscapeHtml(strHeading) + "</h3>\n<table>\n<tbody>\n";
        for (const auto& [strName, strValue] : rFacts)
            strHtml += MakeRow({strName, strValue}, 0, false);
        strHtml += "</tbody>\n</table></div>\n";
    }
    return strHtml;
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
    for (const RunReport::Picture& rSlice : rReport.aSlices)
        strSlices += MakeFigure(rSlice, "slice");
    return FillTemplate(
        g_pcPage, {{"title", EscapeHtml(rReport.strTitle)},
                   {"summary", EscapeHtml(rReport.strSummary)},
                   {"suspects", MakeSuspects(rReport)},
                   {"slices", strSlices},
                   {"rfactors", MakeRfactors(rReport)},
                   {"residuals", rReport.aResidualPlot ? MakeFigure(*rReport.aResidualPlot, "plot")
                                                       : g_pcNoRfactors},
                   {"facts", MakeFacts(rReport)},
                   {"command", EscapeHtml(rReport.strCommand)},
                   {"views", MakeViewTable(rReport, false)}});
}

}  // namespace talven
