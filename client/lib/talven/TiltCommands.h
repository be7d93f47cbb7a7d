#pragma once

#include <array>
#include <istream>
#include <optional>
#include <string>
#include <vector>

#include "talven/Alignment.h"

namespace talven
{

/// What a tilt.com asks for: a reconstruction from aligned views. Lengths are as in the file.
struct TiltCommands
{
    std::string strPath;  ///< empty: no such file
    int iBinned = 0;      ///< IMAGEBINNED: lengths are in pixels so many times smaller; 0: none
    double dThickness = 0, dWidth = 0;  ///< 0: not said
    std::array<double, 2> adShift =
        {};  ///< SHIFT: of the specimen along X and along the rows of a slice
    std::array<double, 2> adOffset = {};  ///< OFFSET: added to the angles; place of the tilt axis
    double dTiltX = 0;                    ///< XAXISTILT, degrees, and what XTILTFILE adds
    std::optional<std::array<double, 2>> adFull;    ///< FULLIMAGE
    std::array<double, 2> adStart = {};             ///< SUBSETSTART
    std::optional<std::array<double, 2>> adRadial;  ///< RADIAL: cutoff and fall, cycles per pixel
    bool bTrueSigma = false;                        ///< the fall is a standard deviation
    bool bHamming = false;
    int iSirtLike = 0;                      ///< 0: none
    std::vector<int> viExclude, viInclude;  ///< views from 0, ascending; empty: not said
    std::vector<float> vfAngles;            ///< ANGLES, degrees
    std::string strAngles, strXTilts;       ///< TILTFILE and XTILTFILE
};

/// What a newst.com asks for: aligned views from raw ones.
struct StackCommands
{
    std::string strPath;  ///< empty: no such file
    std::string strMaps;  ///< TransformFile
    int iBin = 1;         ///< BinByFactor
    ImageSize aSize;      ///< SizeToOutputInXandY; 0: not said
};

/// What command files ask for, together.
struct SeriesCommands
{
    TiltCommands aTilt;
    StackCommands aStack;
};

/// Reads a file of `KEYWORD VALUES` lines: tilt.com or newst.com, told apart by the program of its
/// line that begins with '$', or by their names where there is none. Lines of other programs are
/// skipped, as are comments after '#'; a line that ends with '\' or '&' goes on in the next one.
/// Names of files are relative to the folder of strPath.
///
/// Keywords that only say how to compute are skipped; those that would change the volume in a way
/// that there is no option for are refused, and so are unknown ones.
/// \param rCommands  receives them, beside what it has from other files
/// \return false when the text cannot be read, holds nothing or has a wrong line; rError names the
///         line, rCommands is of no use then.
[[nodiscard]] bool ReadCommands(std::istream& rText, const std::string& strPath,
                                SeriesCommands& rCommands, std::string& rError);
[[nodiscard]] bool ReadCommands(const std::string& strPath, SeriesCommands& rCommands,
                                std::string& rError);

/// Reads an .xtilt file, degrees, one for each view.
/// \return false when it cannot be read, or when the views are not turned about the X axis by one
///         and the same angle; rError says so.
[[nodiscard]] bool ReadXTilt(const std::string& strPath, double& rTiltX, std::string& rError);

}  // namespace talven
