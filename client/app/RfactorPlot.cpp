#include "RfactorPlot.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numbers>
#include <vector>

#include "Picture.h"
#include "talven/Text.h"

namespace talven
{
namespace
{

constexpr double g_dLeft = 80, g_dRight = 24, g_dTop = 46, g_dBottom = 62;

/// One axis: values dFrom to dTo with a tick every dStep.
struct Axis
{
    double dFrom, dTo, dStep;
    double GetFraction(double dValue) const { return (dValue - dFrom) / (dTo - dFrom); }
};

/// The step of 1, 2 or 5 times a power of ten that gives at most iMost ticks.
double ChooseStep(double dRange, int iMost)
{
    const double dPower = std::pow(10.0, std::floor(std::log10(dRange / iMost)));
    for (const double dFactor : {1.0, 2.0, 5.0})
        if (dRange / (dFactor * dPower) <= iMost) return dFactor * dPower;
    return 10 * dPower;
}

Axis MakeValueAxis(std::span<const double> dValues)
{
    std::vector<double> vdFinite;
    std::copy_if(dValues.begin(), dValues.end(), std::back_inserter(vdFinite),
                 [](double dValue) { return std::isfinite(dValue); });
    if (vdFinite.empty()) vdFinite = {0};
    auto [dLow, dHigh] = std::ranges::minmax(vdFinite);
    if (dLow < 0.6 * dHigh || dLow == dHigh) dLow = 0;  // near enough to show the zero line
    if (dHigh <= dLow) dHigh = dLow + 1;
    const double dStep = ChooseStep(dHigh - dLow, 7);
    return {std::floor(dLow / dStep) * dStep, std::ceil(dHigh / dStep) * dStep, dStep};
}

Axis MakeIterationAxis(std::size_t tCount)
{
    const auto dLast = static_cast<double>(std::max<std::size_t>(tCount, 2));
    const double dRoom = 0.03 * (dLast - 1);
    return {1 - dRoom, dLast + dRoom, std::max(1.0, ChooseStep(dLast - 1, 14))};
}

/// The frame, the ticks and the points of one picture.
class CPlot
{
public:
    CPlot(const CPicture& rPicture, const Axis& rX, const Axis& rY)
        : m_rPicture(rPicture), m_aX(rX), m_aY(rY)
    {
    }
    void DrawFrame(const std::string& strTitle) const;
    void DrawCurve(std::span<const double> dValues) const;

private:
    double mX(double dValue) const
    {
        return g_dLeft + m_aX.GetFraction(dValue) * (m_rPicture.GetWidth() - g_dLeft - g_dRight);
    }
    double mY(double dValue) const
    {
        return g_dTop +
               (1 - m_aY.GetFraction(dValue)) * (m_rPicture.GetHeight() - g_dTop - g_dBottom);
    }

    const CPicture& m_rPicture;
    Axis m_aX, m_aY;
};

void CPlot::DrawFrame(const std::string& strTitle) const
{
    cairo_t* pContext = m_rPicture.GetContext();
    const double dRight = mX(m_aX.dTo);
    const double dBottom = mY(m_aY.dFrom);
    cairo_set_line_width(pContext, 1);
    for (int i = 0; m_aY.dFrom + i * m_aY.dStep < m_aY.dTo + 0.5 * m_aY.dStep; ++i)
    {
        const double dValue = m_aY.dFrom + i * m_aY.dStep;
        const double dY = std::floor(mY(dValue)) + 0.5;
        cairo_set_source_rgb(pContext, 0.88, 0.88, 0.88);
        cairo_move_to(pContext, g_dLeft, dY);
        cairo_line_to(pContext, dRight, dY);
        cairo_stroke(pContext);
        cairo_set_source_rgb(pContext, 0.15, 0.15, 0.15);
        const int iDecimals =
            std::max(0, -static_cast<int>(std::floor(std::log10(m_aY.dStep) + 1e-9)));
        m_rPicture.DrawText(g_dLeft - 8, dY, Format("%.*f", iDecimals, dValue), 13, {1, 0.5});
    }
    for (int i = 1; i * m_aX.dStep <= m_aX.dTo; ++i)
    {
        const double dValue = i * m_aX.dStep;
        const double dX = std::floor(mX(dValue)) + 0.5;
        cairo_set_source_rgb(pContext, 0.15, 0.15, 0.15);
        cairo_move_to(pContext, dX, dBottom);
        cairo_line_to(pContext, dX, dBottom + 5);
        cairo_stroke(pContext);
        m_rPicture.DrawText(dX, dBottom + 8, Format("%.0f", dValue), 13, {0.5, 0});
    }
    cairo_rectangle(pContext, g_dLeft + 0.5, std::floor(g_dTop) + 0.5, dRight - g_dLeft,
                    dBottom - g_dTop);
    cairo_stroke(pContext);

    m_rPicture.DrawText(0.5 * (g_dLeft + dRight), dBottom + 34, "iteration", 14, {0.5, 0});
    m_rPicture.DrawText(0.5 * (g_dLeft + dRight), g_dTop / 2, strTitle, 15, {0.5, 0.5});
    cairo_save(pContext);
    cairo_translate(pContext, 18, 0.5 * (g_dTop + dBottom));
    cairo_rotate(pContext, -0.5 * std::numbers::pi);
    m_rPicture.DrawText(0, 0, "R-factor", 14, {0.5, 0.5});
    cairo_restore(pContext);
}

void CPlot::DrawCurve(std::span<const double> dValues) const
{
    cairo_t* pContext = m_rPicture.GetContext();
    cairo_new_path(pContext);  // text leaves a current point
    cairo_set_source_rgb(pContext, 0.12, 0.38, 0.66);
    cairo_set_line_width(pContext, 2);
    const auto ForAll = [&](auto Visit)
    {
        for (std::size_t i = 0; i < dValues.size(); ++i)
            if (std::isfinite(dValues[i])) Visit(mX(double(i) + 1), mY(dValues[i]));
    };
    ForAll([pContext](double dX, double dY) { cairo_line_to(pContext, dX, dY); });
    cairo_stroke(pContext);
    ForAll(
        [pContext](double dX, double dY)
        {
            cairo_new_sub_path(pContext);
            cairo_arc(pContext, dX, dY, 4, 0, 2 * std::numbers::pi);
        });
    cairo_fill(pContext);
}

}  // namespace

bool WriteRfactorPlot(const std::string& strPath, std::span<const double> dRfactors,
                      const std::string& strTitle, std::string& rError)
{
    const CPicture aPicture(800, 520);
    const CPlot aPlot(aPicture, MakeIterationAxis(dRfactors.size()), MakeValueAxis(dRfactors));
    aPlot.DrawFrame(strTitle);
    aPlot.DrawCurve(dRfactors);
    return aPicture.Write(strPath, rError);
}

}  // namespace talven
