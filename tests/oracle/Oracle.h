#pragma once

#include <array>
#include <optional>
#include <utility>
#include <vector>

// Plain double-precision reference of the jobs on one Y row, written from the formulas.
//
// Two things are float arithmetic by definition and done so here too: the number of samples of a
// ray and the test whether a voxel reaches the valid columns.

/// A weight box.
struct OracleBox
{
    std::array<float, 2> afCentre;  ///< x, z from the centre of the volume
    std::array<float, 2> afHalf;    ///< half size
};

enum class EMethod
{
    eBackProj,
    eSart,
    eEm
};

/// What a job is given, for one row.
struct OracleJob
{
    int iProjX = 0, iVolX = 0, iVolZ = 0;
    std::vector<float> vfAngles;             // degrees, one per projection
    std::vector<unsigned> vuiList;           // projections in use
    std::vector<std::pair<int, int>> vSets;  // list positions [first, end)
    std::vector<float> vfRelax;              // [iteration][set], empty: 1
    int iIterations = 1;
    std::optional<OracleBox> aBox;  // empty: no weights in plain jobs, a box of size 0 else
    EMethod eMethod = EMethod::eSart;
    double dShift = 0;  // each ray is moved by up to so much, pixels: the rounding of its position
    unsigned uiSeed = 1;  // for whom by how much
};

using OracleImage = std::vector<double>;                // [proj][x] or [z][x]
using OracleRanges = std::vector<std::pair<int, int>>;  // [proj] (first, one past last)

struct OracleRfactor
{
    std::vector<double> vdRaw;  // [list position]
    std::vector<double> vdDif;  // [iteration][list position]
};

class COracle
{
public:
    explicit COracle(OracleJob aJob);

    /// Ray sums of one projection, shape [x].
    std::vector<double> Project(const OracleImage& rSlice, unsigned uiProj) const;
    /// Length of the rays of one projection within a box of full size 2 * afHalf, at least 1.
    std::vector<double> PathLengths(const OracleBox& rBox, unsigned uiProj) const;
    /// Reprojection of the list into rows of rProjs, divided by the pre-weights when there is a
    /// box.
    void Reproject(const OracleImage& rSlice, OracleImage& rProjs) const;
    /// The job on one row; rSlice is the start and the result. Iterations [iFirst, iEnd), all
    /// without an end; sums of measured rows come with the first.
    OracleRfactor Reconstruct(OracleImage aMeasured, const OracleRanges& rRanges,
                              OracleImage& rSlice, int iFirst = 0, int iEnd = -1) const;

private:
    enum class EUpdate
    {
        eSart,
        eEm
    };
    double mPreWeight(unsigned uiProj, int iX) const
    {
        return m_vdPre[uiProj * m_aJob.iProjX + iX];
    }
    OracleImage mCompare(const OracleImage& rMeasured, const OracleImage& rSlice,
                         std::pair<int, int> aSet, EUpdate eUpdate) const;
    void mUpdate(const OracleImage& rRows, const OracleRanges& rRanges, std::pair<int, int> aSet,
                 double dRelax, EUpdate eUpdate, OracleImage& rSlice) const;
    std::vector<double> mSumAbs(const OracleImage& rRows) const;

    OracleJob m_aJob;
    std::vector<float> m_vfCos, m_vfSin;
    std::vector<double> m_vdPre, m_vdPrj;  // weights, [proj][x]
};

/// A volume or a kernel, shape [z][y][x].
struct OracleVolume
{
    int iX = 0, iY = 0, iZ = 0;
    std::vector<double> vd;

    OracleVolume(int iSizeX, int iSizeY, int iSizeZ, const std::vector<float>& rValues)
        : iX(iSizeX), iY(iSizeY), iZ(iSizeZ), vd(rValues.begin(), rValues.end())
    {
    }
    /// The voxel, or the nearest one of the volume.
    double At(int x, int y, int z) const;
};

/// Weights the neighbours of each voxel with the kernel, which is not turned around.
OracleVolume SmoothVolume(const OracleVolume& rVolume, const OracleVolume& rKernel);
