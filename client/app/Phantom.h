#pragma once

#include <cstdint>
#include <string>

#include "Report.h"

namespace talven
{

/// The options of `talven phantom` as the user wrote them.
struct PhantomArgs
{
    std::string m_strPrefix;
    std::string m_strSize = "512,512";  ///< X,Y of the projections
    int m_iThickness = 128;
    std::string m_strAngles = "-60,60,2";  ///< from,to,step in degrees
    int m_iBeads = 12;
    double m_dNoise = 0;  ///< Gaussian, standard deviation over the mean of the projections
    double m_dDose = 0;   ///< Poisson, counts per pixel at the mean of the projections; 0: none
    std::uint64_t m_ulSeed = 1;
    double m_dPixel = 10;  ///< Angstrom
    ReportOptions m_aReport;
};

/// Writes PREFIX.mrc, PREFIX.tlt and PREFIX_truth.mrc; false: rError says why, in one line.
[[nodiscard]] bool RunPhantom(const PhantomArgs& rArgs, std::string& rError);

}  // namespace talven
