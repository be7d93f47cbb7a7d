#pragma once

#include <span>
#include <string>
#include <vector>

#include "Picture.h"

namespace talven
{

/// One axis of a plot: values dFrom to dTo, ticks at dFirst and every dStep from there.
struct Axis
{
    double dFrom, dTo, dFirst, dStep;
    std::string strTitle;
    bool bLog = false;  ///< values are logarithms to base 10; ticks show what they are of
    double GetFraction(double dValue) const { return (dValue - dFrom) / (dTo - dFrom); }
    std::string DescribeTick(double dValue) const;
};

/// The step of 1, 2 or 5 times a power of ten that gives at most iMost ticks.
double ChooseTickStep(double dRange, int iMost);
/// An axis from tick to tick that shows all finite values, and 0 unless they are far from it.
Axis MakeValueAxis(std::span<const double> dValues, const std::string& strTitle);

/// An axis for the angles of views, degrees; at least one.
Axis MakeAngleAxis(std::span<const float> fAngles);
/// An axis for what is counted from 1.
Axis MakeCountAxis(std::size_t tCount, const std::string& strTitle);
/// An axis of whole powers of ten that shows all finite values above 0.
Axis MakeLogAxis(std::span<const double> dValues, const std::string& strTitle);

struct PlotPoint
{
    double dX, dY;  ///< values on the axes
};

/// A frame with axes, and what is drawn into it.
class CPlot
{
public:
    CPlot(const CPicture& rPicture, const Axis& rX, const Axis& rY)
        : m_rPicture(rPicture), m_aX(rX), m_aY(rY)
    {
    }
    void DrawFrame(const std::string& strTitle) const;

    struct Colour
    {
        double dRed, dGreen, dBlue;
    };
    static constexpr Colour m_aBlue = {0.12, 0.38, 0.66}, m_aOrange = {0.85, 0.5, 0.1},
                            m_aRed = {0.8, 0.1, 0.1};
    void DrawLine(std::span<const PlotPoint> aPoints, const Colour& rColour, double dWidth) const;
    void DrawDots(std::span<const PlotPoint> aPoints, const Colour& rColour) const;
    /// A triangle at the upper edge, where the value lies beyond it.
    void DrawBeyond(double dX, const Colour& rColour) const;
    /// The same at the lower edge.
    void DrawBelow(double dX, const Colour& rColour) const;
    /// Above the frame what a colour means, from the left.
    void DrawKey(int iPlace, const std::string& strText, const Colour& rColour) const;
    /// A short text to the right of a point, or to its left in the right half.
    void DrawLabel(const PlotPoint& rPoint, const std::string& strText,
                   const Colour& rColour) const;

private:
    double mX(double dValue) const;
    double mY(double dValue) const;
    /// \param dTip, dLength  pixels, downwards
    void mDrawArrow(double dX, double dTip, double dLength, const Colour& rColour) const;
    void mSetColour(const Colour& rColour) const;

    const CPicture& m_rPicture;
    Axis m_aX, m_aY;
};

}  // namespace talven
