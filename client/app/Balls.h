#pragma once

#include <array>
#include <span>
#include <string>
#include <vector>

#include "talven/MrcReader.h"
#include "talven/ViewAlignment.h"
#include "talven/VolumeFile.h"

namespace talven
{

/// A place along x, y, z; along columns, rows and sections in a file.
using Place = std::array<double, 3>;

/// A ball of Gaussian density: every projection of it is a round spot, known from a formula.
struct Ball
{
    Place aPlace;      ///< voxels from the centre of the volume
    double dPeak = 1;  ///< of its projections
};
constexpr double g_dBallWidth = 1.8;  ///< standard deviation, voxels
constexpr double g_dBallReach = 7;    ///< nothing of a ball is seen further from its middle

/// Four balls, each dimmer than the one before, that no mirror image and no turn of the volume
/// brings onto each other's places.
/// \param rHalf  they stay within so many voxels from the centre, and their circle around it in x
///               and y, and in x and z, within rHalf[0]
/// \param dTiltX of the specimen, degrees: its rows and columns in the views, too, stay within
/// rHalf
std::array<Ball, 4> PlaceBalls(const Place& rHalf, double dTiltX = 0);

/// A camera that looks at the balls; what it was turned and shifted by is what an alignment undoes.
struct Camera
{
    ImageSize aRaw;
    int iBin = 1;          ///< raw pixels along each edge of a voxel
    double dTiltAxis = 0;  ///< from +Y of the raw view, degrees, counterclockwise
    ViewMap aMap;          ///< raw pixel r shows what the view before the turn has at A r + D
    double dAngle = 0;     ///< the true one, degrees
    double dShiftZ = 0;    ///< of the volume against the specimen, voxels
    double dTiltX = 0;     ///< by which the specimen rises towards +Y, degrees

    /// The view, shape [y][x].
    void Record(std::span<const Ball> aBalls, std::span<float> fRaw) const;
    /// Where the middle of a ball lies, raw pixels from the centre of the view.
    std::array<double, 2> GetSpot(const Ball& rBall) const;
};

/// Where a place of the volume is in a file of a form, voxels from its first one.
Place GetPlaceInFile(const Place& rPlace, const VolumeForm& rForm, const JobSize& rSize);

/// Finds balls in a file, the brightest first: means of the places around the greatest values,
/// weighted with what the values are above half of those.
/// \return false when a section cannot be read
[[nodiscard]] bool FindBalls(CMrcReader& rFile, int iCount, std::vector<Place>& rPlaces,
                             std::string& rError);

/// \param rWorst  the greatest distance of a found place from the expected one of its number
/// \param rSize   of the file
/// \return false when it is more than dAllowed; rError says how they lie
[[nodiscard]] bool ComparePlaces(std::span<const Place> aExpected, std::span<const Place> aFound,
                                 const Place& rSize, double dAllowed, double& rWorst,
                                 std::string& rError);

/// How a file holds a specimen: place in the file = A place + D.
struct FileFrame
{
    std::array<Place, 3> aAxes;  ///< A: what a step along columns, rows and sections of the file is
    Place aOrigin;               ///< D: where the centre of the volume lies

    /// From four places in the volume and in the file.
    static FileFrame Measure(std::span<const Ball> aBalls, std::span<const Place> aFound);
    /// "+X", "-Z": where axis iAxis of the file points.
    std::string GetDirection(int iAxis) const;
    /// Whether columns to the right, rows upwards and sections towards the eye show a mirror image.
    bool IsMirrored() const;
};

}  // namespace talven
