#pragma once

#include <cstdint>
#include <string>

#include "Report.h"

namespace talven
{

/// The options of `talven phantom` as the user wrote them.
struct PhantomArgs
{
    std::string strPrefix;
    std::string strSize = "512,512";  ///< X,Y of the projections
    int iThickness = 128;
    std::string strAngles = "-60,60,2";  ///< from,to,step in degrees
    int iBeads = 12;
    double dNoise = 0;  ///< Gaussian, standard deviation over the mean of the projections
    double dDose = 0;   ///< Poisson, counts per pixel at the mean of the projections; 0: none
    std::uint64_t ulSeed = 1;
    double dPixel = 10;  ///< Angstrom
    ReportOptions aReport;
};

/// Writes PREFIX.mrc, PREFIX.tlt and PREFIX_truth.mrc; false: rError says why, in one line.
[[nodiscard]] bool RunPhantom(const PhantomArgs& rArgs, std::string& rError);

}  // namespace talven
