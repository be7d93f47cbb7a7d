#pragma once

#include <array>
#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <utility>
#include <vector>

// What the kernels and the jobs compute, in double precision and from the formulas.
//
// Where a position decides, it is float arithmetic by definition and done so here too: the number
// of samples of a ray, the detector coordinate of a voxel, the place of a transformed pixel. What
// is read with a weight of 0 does not count.

using Values = std::vector<double>;

/// Images of one size, shape [n][y][x].
struct Images
{
    int iX = 0, iY = 0, iN = 0;
    std::vector<float> vf;

    Images() = default;
    Images(int iSizeX, int iSizeY, int iSizeN, float fValue = 0)
        : iX(iSizeX), iY(iSizeY), iN(iSizeN), vf(GetPixels() * std::size_t(iN), fValue)
    {
    }
    bool IsEmpty() const { return vf.empty(); }
    Values GetValues(int n) const { return {Nth(n).begin(), Nth(n).end()}; }
    std::size_t GetPixels() const { return std::size_t(iX) * std::size_t(iY); }
    std::span<float> Nth(int n) { return std::span(vf).subspan(n * GetPixels(), GetPixels()); }
    std::span<const float> Nth(int n) const
    {
        return std::span(vf).subspan(n * GetPixels(), GetPixels());
    }
    float& At(int x, int y, int n) { return vf[n * GetPixels() + std::size_t(y) * iX + x]; }
    float At(int x, int y, int n) const { return vf[n * GetPixels() + std::size_t(y) * iX + x]; }
};

Images RandomImages(int iX, int iY, int iN, float fLow, float fHigh, unsigned uiSeed = 1);

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

/// Inputs of a whole job.
struct TestJob
{
    std::string strName;
    EMethod eMethod = EMethod::eSart;
    bool bReproject = false;
    int iProjX = 37, iY = 5, iVolX = 37, iVolZ = 13;
    std::vector<float> vfAngles = {-60, -40, -20, 0, 20, 40, 60};  // degrees
    int iIterations = 1;
    unsigned uiSets = 1;
    std::vector<unsigned> vuiSetSize;  // empty: even sets
    std::vector<float> vfRelax;        // [iteration][set], empty: 1
    std::vector<unsigned> vuiList;     // projections in use, empty: all
    std::optional<OracleBox> aBox;     // empty: no weights in plain jobs, a box of size 0 else
    unsigned uiInterval = 0;           // iterations between smoothings
    std::array<int, 3> aiKernel = {0, 0, 0};  // X, Y, Z of the smoothing kernel
    std::vector<float> vfKernel;              // empty: none

    bool bZeroStart = false;  // from an empty volume
    bool bInvalid = false;    // missing columns at the sides, whole missing rows
    int iFailingWorker = -1;  // whose smoothing fails
    bool bFree = false;       // voxels may fall below 0
};

/// What a failed test calls the job.
inline void PrintTo(const TestJob& rJob, std::ostream* pStream)
{
    *pStream << rJob.strName;
}

/// The projections in use.
std::vector<unsigned> GetList(const TestJob& rJob);

using OracleRanges = std::vector<std::pair<float, float>>;  ///< [proj] (first, one past last)

/// The operations on one Y row: projection rows are shaped [proj][x], slices [z][x].
class COracle
{
public:
    explicit COracle(const TestJob& rJob);  ///< needs sizes, angles and the list

    /// Ray sums of one projection, shape [x].
    Values Project(const Values& rSlice, unsigned uiProj) const;
    /// Length of the rays of one projection within the box, at least 1.
    Values PathLengths(const OracleBox& rBox, unsigned uiProj) const;
    /// Measured rows against ray sums: differences, or ratios for EM; other rows are 0.
    Values Compare(const Values& rMeasured, const Values& rSlice, std::pair<int, int> aSet,
                   bool bEm) const;
    /// Back projection of the rows of one set into the slice.
    void Update(const Values& rRows, const OracleRanges& rRanges, std::pair<int, int> aSet,
                double dRelax, bool bEm, Values& rSlice) const;
    /// Sums of |value| per list position.
    Values SumAbs(const Values& rRows) const;

    const Values& GetPreWeights() const { return m_vdPre; }  ///< [proj][x]
    const Values& GetPrjWeights() const { return m_vdPrj; }
    const std::vector<float>& GetCos() const { return m_vfCos; }  ///< [proj]
    const std::vector<float>& GetSin() const { return m_vfSin; }

private:
    double mSample(const Values& rSlice, double dX, double dZ) const;

    TestJob m_aJob;
    std::vector<unsigned> m_vuiList;
    std::vector<float> m_vfCos, m_vfSin;
    Values m_vdPre, m_vdPrj;
};

/// Weights the neighbours of each voxel with the kernel, which is not turned around; the edges
/// repeat. Shapes [z][y][x].
Values SmoothVolume(const Images& rVolume, const Images& rKernel);

/// A request to align, without the numbers of the images.
struct OracleAlign
{
    std::array<float, 6> afMatrix;  ///< a b c d e f
    std::array<float, 6> afScale;   ///< s0 to s5
    bool bLog = false;
};

/// Measured image n mapped to a projection of iX x iY pixels; a missing pixel is NaN.
Values TransformImage(const OracleAlign& rAlign, const Images& rMeasured, int n, int iX, int iY);

struct AlignSums
{
    /// Of a, b, a a, b b, a b, |a|, |b|, |a - b|, 1: the order of the reply, words 7 to 15.
    std::array<double, 9> ad{};
    std::array<double, 9> adSize{};  ///< sums of the absolute contributions
};
/// \param rTransed  what TransformImage gave for the projection
AlignSums SumImages(std::span<const float> fAligned, const Values& rTransed);
