#include "RfactorPlot.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "Plot.h"

namespace talven
{

CPicture DrawRfactors(std::span<const double> dRfactors, const std::string& strTitle)
{
    CPicture aPicture(800, 520);
    const CPlot aPlot(aPicture, MakeCountAxis(dRfactors.size(), "iteration"),
                      MakeValueAxis(dRfactors, "R-factor"));
    aPlot.DrawFrame(strTitle);
    std::vector<PlotPoint> aPoints;
    for (std::size_t i = 0; i < dRfactors.size(); ++i)
        if (std::isfinite(dRfactors[i])) aPoints.push_back({double(i) + 1, dRfactors[i]});
    aPlot.DrawLine(aPoints, CPlot::m_aBlue, 2);
    aPlot.DrawDots(aPoints, CPlot::m_aBlue);
    return aPicture;
}

bool WriteRfactorPlot(const std::string& strPath, std::span<const double> dRfactors,
                      const std::string& strTitle, std::string& rError)
{
    return DrawRfactors(dRfactors, strTitle).Write(strPath, rError);
}

}  // namespace talven
