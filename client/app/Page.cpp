#include "Page.h"

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
[[main]]</main>
</body>
</html>
)";

}  // namespace

std::string MakeFigure(const PagePicture& rPicture, const char* pcClass)
{
    return Format("<figure><img class=\"%s\" alt=\"", pcClass) + EscapeHtml(rPicture.strAlt) +
           "\" src=\"" + MakeDataUri(rPicture.vcPng) + "\"><figcaption>" +
           EscapeHtml(rPicture.strCaption) + "</figcaption></figure>\n";
}

std::string MakeRow(const std::vector<std::string>& rCells, std::size_t tNumbers, bool bHeadings,
                    bool bBad)
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

std::string MakeTables(const PageTables& rTables)
{
    std::string strHtml;
    for (const auto& [strHeading, rFacts] : rTables)
    {
        if (rFacts.empty()) continue;
        strHtml += "<div><h3>" + EscapeHtml(strHeading) + "</h3>\n<table>\n<tbody>\n";
        for (const auto& [strName, strValue] : rFacts)
            strHtml += MakeRow({strName, strValue}, 0, false);
        strHtml += "</tbody>\n</table></div>\n";
    }
    return strHtml;
}

std::string MakePage(const std::string& strTitle, const std::string& strSummary,
                     const std::string& strMain)
{
    return FillTemplate(
        g_pcPage,
        {{"title", EscapeHtml(strTitle)}, {"summary", EscapeHtml(strSummary)}, {"main", strMain}});
}

}  // namespace talven
