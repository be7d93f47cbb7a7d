#include "AlignReport.h"

#include <algorithm>
#include <cmath>

#include "AlignPlots.h"
#include "Html.h"
#include "talven/Text.h"

namespace talven
{
namespace
{

constexpr const char* g_pcMain = R"(<section>
<h2>Warnings</h2>
[[warnings]]</section>
<section>
<h2>Views left out</h2>
[[left out]]</section>
<section>
<h2>Places of the views</h2>
[[places]]</section>
<section>
<h2>Agreement of each view with the others</h2>
[[correlations]]</section>
<section>
<h2>Tilt axis</h2>
[[axis]]</section>
<section>
<h2>Rounds</h2>
[[rounds]]</section>
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
<p class="note">x, y: where the specimen's centre lies in the view, pixels right of and above the view's centre. Correlation: with a volume made without this view. Elsewhere: the same at the best other place, more than six blocks away; one nearly as high says that the place is not certain.</p>
[[views]]</section>
)";

/// How far the specimen's centre lies from those of the views that are used, pixels.
struct Distances
{
    double dRms, dMost;
};

Distances Measure(const SeriesAlignment& rAlignment)
{
    double dSquares = 0, dMost = 0;
    int iUsed = 0;
    for (std::size_t i = 0; i < rAlignment.aViews.size(); ++i)
    {
        if (rAlignment.aViews[i].bLeftOut) continue;
        const ViewPlace& r = rAlignment.aPlaces.aViews[i];
        const double dFar = std::hypot(r.dX, r.dY);
        dSquares += dFar * dFar;
        dMost = std::max(dMost, dFar);
        ++iUsed;
    }
    return {std::sqrt(dSquares / std::max(1, iUsed)), dMost};
}

std::string DescribeAxis(const AlignReport& rReport, const SeriesAlignment& rAlignment)
{
    const double dAxis = rAlignment.aPlaces.dTiltAxis;
    if (rReport.aRequest.eAxis == EAxis::eGiven) return Format("%g°, as given", dAxis);
    if (rAlignment.aAxis.bFlat) return Format("%.3f°, which these views cannot tell", dAxis);
    return Format("%.3f° ± %.2g°", dAxis, rAlignment.aAxis.dUncertainty);
}

std::string Summarise(const AlignReport& rReport, const SeriesAlignment& rAlignment)
{
    const std::size_t tLeftOut = rAlignment.ListLeftOut().size();
    const Distances aFar = Measure(rAlignment);
    return Format("%zu views", rAlignment.aViews.size()) +
           (tLeftOut > 0 ? Format(", %zu left out", tLeftOut) : "") + "; tilt axis at " +
           DescribeAxis(rReport, rAlignment) +
           Format(
               "; median correlation %.3f with volumes made without each view; the specimen's "
               "centre lay %.1f pixels (RMS), at most %.1f, from those of the views.",
               rAlignment.dCorrelation, aFar.dRms, aFar.dMost);
}

std::string MakeWarnings(const SeriesAlignment& rAlignment)
{
    if (rAlignment.astrWarnings.empty()) return "<p>None.</p>\n";
    std::string strHtml = "<ul class=\"bad\">\n";
    for (const std::string& rWarning : rAlignment.astrWarnings)
        strHtml += "<li>" + EscapeHtml(rWarning) + "</li>\n";
    return strHtml + "</ul>\n";
}

std::string DescribeFault(const AlignedView& rView, double dMedian)
{
    const double dCorrelation = rView.aMatch.dCorrelation;
    if (dCorrelation == 0) return "nothing in it that could be compared";
    return Format("does not look like a volume of the others: correlation %.3f, median %.3f",
                  dCorrelation, dMedian);
}

/// The views of the stack that are not used, from 0.
std::vector<int> ListUnused(const AlignReport& rReport, const SeriesAlignment& rAlignment)
{
    std::vector<bool> vbUsed(std::size_t(rReport.iViews));
    for (std::size_t i = 0; i < rReport.viNumbers.size(); ++i)
        vbUsed[std::size_t(rReport.viNumbers[i] - 1)] = !rAlignment.aViews[i].bLeftOut;
    std::vector<int> viUnused;
    for (int i = 0; i < rReport.iViews; ++i)
        if (!vbUsed[std::size_t(i)]) viUnused.push_back(i);
    return viUnused;
}

std::string MakeLeftOut(const AlignReport& rReport, const SeriesAlignment& rAlignment)
{
    const std::vector<int> viLeftOut = rAlignment.ListLeftOut();
    if (viLeftOut.empty()) return "<p>None.</p>\n";
    std::string strHtml = "<p class=\"bad\"><strong>" +
                          Format("%zu of %zu views", viLeftOut.size(), rAlignment.aViews.size()) +
                          "</strong>. Leave them out of reconstructions, too:</p>\n<pre><code>" +
                          EscapeHtml("--exclude " + FormatViews(ListUnused(rReport, rAlignment))) +
                          "</code></pre>\n<table>\n<thead>" +
                          MakeRow({"View", "Angle", "Why"}, 2, true) + "</thead>\n<tbody>\n";
    for (const int i : viLeftOut)
        strHtml +=
            MakeRow({Format("%d", rReport.viNumbers[std::size_t(i)]),
                     Format("%g°", double(rReport.vfAngles[std::size_t(i)])),
                     DescribeFault(rAlignment.aViews[std::size_t(i)], rAlignment.dCorrelation)},
                    2, false, true);
    return strHtml + "</tbody>\n</table>\n";
}

std::string MakeViewTable(const AlignReport& rReport, const SeriesAlignment& rAlignment)
{
    std::string strHtml =
        "<table>\n<thead>" +
        MakeRow({"View", "Angle", "x", "y", "Correlation", "Elsewhere", ""}, 6, true) +
        "</thead>\n<tbody>\n";
    for (std::size_t i = 0; i < rAlignment.aViews.size(); ++i)
    {
        const AlignedView& rView = rAlignment.aViews[i];
        const ViewPlace& rPlace = rAlignment.aPlaces.aViews[i];
        strHtml += MakeRow({Format("%d", rReport.viNumbers[i]),
                            Format("%g°", double(rReport.vfAngles[i])), Format("%.2f", rPlace.dX),
                            Format("%.2f", rPlace.dY), Format("%.3f", rView.aMatch.dCorrelation),
                            Format("%.3f", rView.aMatch.dSecond), rView.bLeftOut ? "left out" : ""},
                           6, false, rView.bLeftOut);
    }
    return strHtml + "</tbody>\n</table>\n";
}

Facts DescribeSeries(const AlignReport& rReport, const SeriesAlignment& rAlignment)
{
    const auto [fLow, fHigh] = std::ranges::minmax(rReport.vfAngles);
    const std::vector<int> viUnused = ListUnused(rReport, rAlignment);
    Facts aFacts = {
        {"Views", Format("%d", rReport.iViews)},
        {"Size of the views", Format("%d × %d pixels", rReport.aRaw.iX, rReport.aRaw.iY)},
        {"Angles", Format("%g° to %g°", double(fLow), double(fHigh))}};
    if (!viUnused.empty()) aFacts[0].second += "; not used: " + FormatViews(viUnused);
    const SeriesAlignRequest& rRequest = rReport.aRequest;
    if (rRequest.bIsolated) aFacts.emplace_back("Specimen", "whole in all views");
    if (rRequest.bDark) aFacts.emplace_back("Contrast", "darker than what is around it");
    aFacts.emplace_back("Thickness", Format("about %d pixels", rRequest.iThickness));
    return aFacts;
}

Facts DescribeAlignment(const AlignReport& rReport, const SeriesAlignment& rAlignment)
{
    const SeriesAlignRequest& rRequest = rReport.aRequest;
    std::string strBins;
    for (const int iBin : rRequest.viBins.empty() ? ChooseBins(rReport.aRaw) : rRequest.viBins)
        strBins += (strBins.empty() ? "" : ", then ") + Format("%d", iBin);
    const std::string strAxis = rRequest.eAxis == EAxis::eUnknown ? "nothing"
                                : rRequest.eAxis == EAxis::eGiven
                                    ? Format("%g°, fixed", rRequest.dTiltAxis)
                                    : Format("about %g°", rRequest.dTiltAxis);
    const auto iTrials = std::ranges::count_if(rAlignment.aRounds, &AlignRound::bTrial);
    return {
        {"Tilt axis told", strAxis},
        {"Tilt axis found", DescribeAxis(rReport, rAlignment)},
        {"Bins", strBins},
        {"Limit", Format("%g pixels", rRequest.dLimit)},
        {"Rounds", Format("%td, and %td to try tilt axes", std::ssize(rAlignment.aRounds) - iTrials,
                          iTrials)},
        {"Median correlation",
         Format("%.4f, each view with a volume made without it", rAlignment.dCorrelation)},
        {"Would still move", Format("%.3f pixels (RMS), by those volumes", rAlignment.dWanted)}};
}

/// Makes figures; after one that fails nothing is drawn any more.
class CFigures
{
public:
    std::string Add(const CPicture& rPicture, const std::string& strAlt,
                    const std::string& strCaption)
    {
        PagePicture aFigure = {{}, strAlt, strCaption};
        m_bOk = m_bOk && rPicture.Encode(aFigure.vcPng, m_strError);
        return m_bOk ? MakeFigure(aFigure, "plot") : "";
    }
    bool IsOk() const { return m_bOk; }
    const std::string& GetError() const { return m_strError; }

private:
    bool m_bOk = true;
    std::string m_strError;
};

std::string MakeAxisSection(const AxisCurve& rCurve, CFigures& rFigures)
{
    if (rCurve.vdAngles.empty()) return "<p>It was given, and not searched.</p>\n";
    const std::string strLeast = Format(
        "Root mean square of the difference between views and volume, within an ellipse; "
        "the least was %.4g. ",
        std::sqrt(std::max(0.0, -std::ranges::max(rCurve.vdScores))));
    return rFigures.Add(
        DrawAxisCurve(rCurve), "Plot of the difference over the tilt axis",
        strLeast + (rCurve.bFlat ? "It has no clear valley: the axis stays where it was."
                                 : "The uncertainty is that of the curve's points alone, and "
                                   "smaller than the true error."));
}

}  // namespace

bool MakeAlignPage(const AlignReport& rReport, const SeriesAlignment& rAlignment,
                   std::string& rPage, std::string& rError)
{
    PageTables aTables = {{"Series", DescribeSeries(rReport, rAlignment)},
                          {"Alignment", DescribeAlignment(rReport, rAlignment)}};
    aTables.insert(aTables.end(), rReport.aTables.begin(), rReport.aTables.end());
    CFigures aFigures;
    const std::string strMain = FillTemplate(
        g_pcMain,
        {{"warnings", MakeWarnings(rAlignment)},
         {"left out", MakeLeftOut(rReport, rAlignment)},
         {"places", aFigures.Add(DrawPlaces(rAlignment, rReport.vfAngles, rReport.viNumbers),
                                 "Plot of the places over the angles",
                                 "Where the specimen's centre lies in the raw views, pixels right "
                                 "of and above the view's centre; views left out are red at the "
                                 "lower edge, with their numbers")},
         {"correlations",
          aFigures.Add(
              DrawCorrelations(rAlignment, rReport.vfAngles, rReport.viNumbers),
              "Plot of the correlations over the angles",
              "Correlation of each view with a volume made without it, at its place; "
              "those at the ends of the tilt range often lie lower, since the other views know "
              "less about them")},
         {"axis", MakeAxisSection(rAlignment.aAxis, aFigures)},
         {"rounds", aFigures.Add(DrawRounds(rAlignment.aRounds), "Plot of the rounds",
                                 "How far the views were told to move in each round (RMS)")},
         {"facts", MakeTables(aTables)},
         {"command", EscapeHtml(rReport.strCommand)},
         {"views", MakeViewTable(rReport, rAlignment)}});
    if (!aFigures.IsOk())
    {
        rError = aFigures.GetError();
        return false;
    }
    rPage = MakePage("Alignment of " + rReport.strTitle, Summarise(rReport, rAlignment), strMain);
    return true;
}

}  // namespace talven
