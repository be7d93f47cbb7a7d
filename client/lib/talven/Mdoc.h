#pragma once

#include <cstdint>
#include <istream>
#include <optional>
#include <string>
#include <vector>

namespace talven
{

/// Electrons that have gone through the specimen, per square Angstrom.
struct ViewDose
{
    double dPrior = 0;     ///< before the view was taken
    double dExposure = 0;  ///< while it was
};

/// What a section of an .mdoc file says about a view.
struct MdocSection
{
    int iZ = 0;                          ///< number of the section
    std::optional<double> dAngle;        ///< tilt, degrees
    std::optional<double> dExposure;     ///< e/A^2
    std::optional<double> dPrior;        ///< e/A^2
    std::optional<double> dPixel;        ///< Angstrom
    std::optional<double> dRotation;     ///< RotationAngle, degrees
    std::optional<double> dVoltage;      ///< of the microscope, kV
    std::optional<std::int64_t> lTaken;  ///< time, seconds; only good for the order
};

/// An .mdoc file: `Key = value` lines, first those for all views, then those after a line
/// `[ZValue = N]` or `[FrameSet = N]` for one of them.
struct Mdoc
{
    std::string strName;             ///< of the file
    std::optional<double> dPixel;    ///< Angstrom, of all views or of the first
    std::optional<double> dVoltage;  ///< kV, of all views or of the first
    std::optional<double>
        dTiltAxis;           ///< from the title; degrees from the images' +Y axis, counterclockwise
    bool bRotation = false;  ///< a section has a RotationAngle
    std::vector<MdocSection> aSections;  ///< in the order of the file, each number once
};

/// Keys that are not known are skipped. Angles must be within +-360, doses not negative, pixels
/// above 0.
/// \return false when the text cannot be read, has no sections or a wrong line; rError names the
///         line, rMdoc is of no use then.
[[nodiscard]] bool ReadMdoc(std::istream& rText, const std::string& strName, Mdoc& rMdoc,
                            std::string& rError);
[[nodiscard]] bool ReadMdoc(const std::string& strPath, Mdoc& rMdoc, std::string& rError);

/// What an .mdoc file says about the views of a stack.
struct MdocViews
{
    std::vector<std::optional<float>> vfAngles;  ///< degrees, one for each view
    std::vector<ViewDose> aDoses;                ///< one for each view; empty: not known
    std::vector<int> viMissing;                  ///< views without a section, from 0, ascending
};

/// Tells by the numbers of the sections which view is which. Where numbers are left out and there
/// are as many sections as views, the stack was written without those views; otherwise number N is
/// view N of the stack, counted from 0, and a view without a section is missing.
///
/// The dose before a view is its PriorRecordDose, where those are given and not all 0; otherwise
/// the ExposureDose of all views that were taken earlier: by DateTime when each section has one, by
/// the order of the file when not. \return false when a section has no place in the stack; rError
/// has both numbers.
[[nodiscard]] bool FitToStack(const Mdoc& rMdoc, int iViews, MdocViews& rViews,
                              std::string& rError);

}  // namespace talven
