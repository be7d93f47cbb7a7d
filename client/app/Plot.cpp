#include "Plot.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numbers>

#include "talven/Text.h"

namespace talven
{
namespace
{

constexpr double g_dLeft = 80, g_dRight = 24, g_dTop = 46, g_dBottom = 62;

}  // namespace

double ChooseTickStep(double dRange, int iMost)
{
    const double dPower = std::pow(10.0, std::floor(std::log10(dRange / iMost)));
    for (const double dFactor : {1.0, 2.0, 5.0})
        if (dRange / (dFactor * dPower) <= iMost) return dFactor * dPower;
    return 10 * dPower;
}

Axis MakeValueAxis(std::span<const double> dValues, const std::string& strTitle)
{
    std::vector<double> vdFinite;
    std::copy_if(dValues.begin(), dValues.end(), std::back_inserter(vdFinite),
                 [](double dValue) { return std::isfinite(dValue); });
    if (vdFinite.empty()) vdFinite = {0};
    auto [dLow, dHigh] = std::ranges::minmax(vdFinite);
    if (dLow < 0.6 * dHigh || dLow == dHigh)  // near enough to show the zero line
    {
        dLow = std::min(dLow, 0.0);
        dHigh = std::max(dHigh, 0.0);
    }
    if (dHigh <= dLow) dHigh = dLow + 1;
    const double dStep = ChooseTickStep(dHigh - dLow, 7);
    const double dFrom = std::floor(dLow / dStep) * dStep;
    return {dFrom, std::ceil(dHigh / dStep) * dStep, dFrom, dStep, strTitle};
}

Axis MakeAngleAxis(std::span<const float> fAngles)
{
    const auto [fLow, fHigh] = std::ranges::minmax(fAngles);
    const double dRoom = std::max(1.0, 0.04 * double(fHigh - fLow));
    const double dFrom = fLow - dRoom, dTo = fHigh + dRoom;
    const double dStep = std::max(1.0, ChooseTickStep(dTo - dFrom, 13));
    return {dFrom, dTo, std::ceil(dFrom / dStep) * dStep, dStep, "angle, degrees"};
}

Axis MakeCountAxis(std::size_t tCount, const std::string& strTitle)
{
    const auto dLast = static_cast<double>(std::max<std::size_t>(tCount, 2));
    const double dRoom = 0.03 * (dLast - 1);
    const double dStep = std::max(1.0, ChooseTickStep(dLast - 1, 14));
    return {1 - dRoom, dLast + dRoom, dStep, dStep, strTitle};
}

Axis MakeLogAxis(std::span<const double> dValues, const std::string& strTitle)
{
    double dLow = HUGE_VAL, dHigh = -HUGE_VAL;
    for (const double dValue : dValues)
        if (dValue > 0 && std::isfinite(dValue))
        {
            dLow = std::min(dLow, std::floor(std::log10(dValue)));
            dHigh = std::max(dHigh, std::ceil(std::log10(dValue)));
        }
    if (dLow > dHigh) dLow = dHigh = 0;
    if (dLow == dHigh) dHigh += 1;
    const double dStep = std::max(1.0, ChooseTickStep(dHigh - dLow, 7));
    return {dLow, dHigh, dLow, dStep, strTitle, true};
}

std::string Axis::DescribeTick(double dValue) const
{
    if (bLog) return Format("%g", std::pow(10, dValue));
    if (std::fabs(dValue) < 1e-9 * dStep) dValue = 0;  // and not -0
    const int iDecimals = std::max(0, -static_cast<int>(std::floor(std::log10(dStep) + 1e-9)));
    return Format("%.*f", iDecimals, dValue);
}

double CPlot::mX(double dValue) const
{
    return g_dLeft + m_aX.GetFraction(dValue) * (m_rPicture.GetWidth() - g_dLeft - g_dRight);
}

double CPlot::mY(double dValue) const
{
    return g_dTop + (1 - m_aY.GetFraction(dValue)) * (m_rPicture.GetHeight() - g_dTop - g_dBottom);
}

void CPlot::mSetColour(const Colour& rColour) const
{
    cairo_set_source_rgb(m_rPicture.GetContext(), rColour.dRed, rColour.dGreen, rColour.dBlue);
}

void CPlot::DrawFrame(const std::string& strTitle) const
{
    cairo_t* pContext = m_rPicture.GetContext();
    const double dRight = mX(m_aX.dTo);
    const double dBottom = mY(m_aY.dFrom);
    cairo_set_line_width(pContext, 1);
    for (int i = 0; m_aY.dFirst + i * m_aY.dStep < m_aY.dTo + 0.5 * m_aY.dStep; ++i)
    {
        const double dValue = m_aY.dFirst + i * m_aY.dStep;
        const double dY = std::floor(mY(dValue)) + 0.5;
        cairo_set_source_rgb(pContext, 0.88, 0.88, 0.88);
        cairo_move_to(pContext, g_dLeft, dY);
        cairo_line_to(pContext, dRight, dY);
        cairo_stroke(pContext);
        cairo_set_source_rgb(pContext, 0.15, 0.15, 0.15);
        m_rPicture.DrawText(g_dLeft - 8, dY, m_aY.DescribeTick(dValue), 13, {1, 0.5});
    }
    for (int i = 0; m_aX.dFirst + i * m_aX.dStep <= m_aX.dTo; ++i)
    {
        const double dValue = m_aX.dFirst + i * m_aX.dStep;
        const double dX = std::floor(mX(dValue)) + 0.5;
        cairo_set_source_rgb(pContext, 0.15, 0.15, 0.15);
        cairo_move_to(pContext, dX, dBottom);
        cairo_line_to(pContext, dX, dBottom + 5);
        cairo_stroke(pContext);
        m_rPicture.DrawText(dX, dBottom + 8, m_aX.DescribeTick(dValue), 13, {0.5, 0});
    }
    cairo_rectangle(pContext, g_dLeft + 0.5, std::floor(g_dTop) + 0.5, dRight - g_dLeft,
                    dBottom - g_dTop);
    cairo_stroke(pContext);

    m_rPicture.DrawText(0.5 * (g_dLeft + dRight), dBottom + 34, m_aX.strTitle, 14, {0.5, 0});
    m_rPicture.DrawText(0.5 * (g_dLeft + dRight), g_dTop / 2, strTitle, 15, {0.5, 0.5});
    cairo_save(pContext);
    cairo_translate(pContext, 18, 0.5 * (g_dTop + dBottom));
    cairo_rotate(pContext, -0.5 * std::numbers::pi);
    m_rPicture.DrawText(0, 0, m_aY.strTitle, 14, {0.5, 0.5});
    cairo_restore(pContext);
}

void CPlot::DrawLine(std::span<const PlotPoint> aPoints, const Colour& rColour, double dWidth) const
{
    cairo_t* pContext = m_rPicture.GetContext();
    cairo_new_path(pContext);  // text leaves a current point
    mSetColour(rColour);
    cairo_set_line_width(pContext, dWidth);
    for (const PlotPoint& rPoint : aPoints) cairo_line_to(pContext, mX(rPoint.dX), mY(rPoint.dY));
    cairo_stroke(pContext);
}

void CPlot::DrawDots(std::span<const PlotPoint> aPoints, const Colour& rColour) const
{
    cairo_t* pContext = m_rPicture.GetContext();
    mSetColour(rColour);
    for (const PlotPoint& rPoint : aPoints)
    {
        cairo_new_sub_path(pContext);
        cairo_arc(pContext, mX(rPoint.dX), mY(rPoint.dY), 4, 0, 2 * std::numbers::pi);
    }
    cairo_fill(pContext);
}

void CPlot::DrawBeyond(double dX, const Colour& rColour) const
{
    mDrawArrow(dX, g_dTop + 2, 11, rColour);
}

void CPlot::DrawBelow(double dX, const Colour& rColour) const
{
    mDrawArrow(dX, m_rPicture.GetHeight() - g_dBottom - 2, -11, rColour);
}

void CPlot::mDrawArrow(double dX, double dTip, double dLength, const Colour& rColour) const
{
    cairo_t* pContext = m_rPicture.GetContext();
    mSetColour(rColour);
    cairo_move_to(pContext, mX(dX), dTip);
    cairo_rel_line_to(pContext, 6, dLength);
    cairo_rel_line_to(pContext, -12, 0);
    cairo_fill(pContext);
}

void CPlot::DrawKey(int iPlace, const std::string& strText, const Colour& rColour) const
{
    const double dX = g_dLeft + 8 + 150 * iPlace, dY = g_dTop / 2 + 6;
    cairo_t* pContext = m_rPicture.GetContext();
    cairo_new_path(pContext);
    mSetColour(rColour);
    cairo_arc(pContext, dX, dY, 4, 0, 2 * std::numbers::pi);
    cairo_fill(pContext);
    m_rPicture.DrawText(dX + 12, dY, strText, 13, {0, 0.5});
}

void CPlot::DrawLabel(const PlotPoint& rPoint, const std::string& strText,
                      const Colour& rColour) const
{
    const bool bLeft = m_aX.GetFraction(rPoint.dX) > 0.5;
    mSetColour(rColour);
    m_rPicture.DrawText(mX(rPoint.dX) + (bLeft ? -8 : 8), std::max(mY(rPoint.dY), g_dTop + 8),
                        strText, 12, {bLeft ? 1.0 : 0.0, 0.5});
}

}  // namespace talven
