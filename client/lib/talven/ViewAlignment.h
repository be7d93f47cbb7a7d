#pragma once

#include <istream>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "talven/Alignment.h"

namespace talven
{

/// Where a pixel of a raw view lies in the aligned view, both counted from the centres of their
/// images, (n - 1) / 2, in pixels of the raw view: aligned = A raw + D.
struct ViewMap
{
    double dA11 = 1, dA12 = 0, dA21 = 0, dA22 = 1;
    double dX = 0, dY = 0;

    /// This map and then that one.
    ViewMap Then(const ViewMap& rNext) const;
    /// From the aligned view to the raw one. \return false for a map that cannot be turned round
    [[nodiscard]] bool Invert(ViewMap& rInverse) const;
};

/// A turn about the centre, degrees, counterclockwise with X to the right and Y up.
ViewMap Turn(double dDegrees);

/// Reads an .xf file: A11 A12 A21 A22 DX DY of one view a line. Blank lines and everything from a
/// '#' on are skipped.
/// \return false when the file cannot be read, has no map, or has a line that is not six numbers,
///         not a map that can be turned round or far from any view; rError names the line, rMaps
///         stays as it was.
[[nodiscard]] bool ReadXf(const std::string& strPath, std::vector<ViewMap>& rMaps,
                          std::string& rError);
/// The same from a text that messages call strName.
[[nodiscard]] bool ReadXf(std::istream& rText, const std::string& strName,
                          std::vector<ViewMap>& rMaps, std::string& rError);

/// Rounds maps to the digits of such a file.
void RoundAsXf(std::span<ViewMap> aMaps);
/// Writes them so.
[[nodiscard]] bool WriteXf(const std::string& strPath, std::span<const ViewMap> aMaps,
                           std::string& rError);

/// How the raw views of a tilt series become aligned ones, with the tilt axis along Y.
struct AlignRequest
{
    std::vector<ViewMap> aMaps = {};  ///< one for each view; empty: aligned but for what follows
    /// From the +Y axis of the raw views to the tilt axis, degrees, counterclockwise with X to the
    /// right and Y up; it counts after the maps.
    double dTiltAxis = 0;
    int iBin = 1;          ///< raw pixels along each edge of an aligned one
    ImageSize aSize = {};  ///< of the aligned views; 0: what the raw ones make
    double dShiftZ = 0;    ///< of the specimen in the volume, voxels towards higher slices
    double dTiltX = 0;     ///< by which the specimen rises towards +Y, degrees: it is laid flat
    double dShiftX = 0;    ///< of the specimen to the right, voxels
    double dAxisX = 0;  ///< where the tilt axis lies in the aligned views, right of their centres
    /// Column of the raw views, from 0, in which the tilt axis crosses the middle row; it is
    /// brought to the middle before anything else. Not beside maps, which do that themselves.
    std::optional<double> dCentre = {};

    /// Whether views are used as they are.
    bool IsNone() const;
};

/// The raw and the aligned views, and the map that the server resamples each view with, once.
struct ViewAlignment
{
    ImageSize aRaw;
    int iBin = 1;
    ImageSize aBinned;  ///< raw views in blocks of iBin x iBin pixels: what the server gets
    ImageSize aAligned;
    std::vector<Affine> aMaps;  ///< from aligned to binned views, one for each view; empty: none

    bool IsNone() const { return aMaps.empty(); }
};

/// \param fAngles  of all views, degrees
/// \return false when the request does not fit; rError begins with the part of it that is wrong
///         ("xf: ...").
[[nodiscard]] bool MakeViewAlignment(const AlignRequest& rRequest, const ImageSize& rRaw,
                                     std::span<const float> fAngles, ViewAlignment& rAlignment,
                                     std::string& rError);

/// Means of blocks of iBin x iBin pixels; what is left over at the right and at the top goes. A
/// block with a missing pixel is missing.
void BinImage(std::span<const float> fPixels, const ImageSize& rSize, int iBin,
              std::span<float> fBinned);

}  // namespace talven
