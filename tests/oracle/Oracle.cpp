#include "tests/oracle/Oracle.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <numeric>
#include <random>

namespace
{
/// A whole number where rounding alone keeps a position from it: a ray that only touches the slice
/// takes nothing from it.
double Snap(double dPosition)
{
    const double dWhole = std::round(dPosition);
    return std::fabs(dPosition - dWhole) < 1e-12 ? dWhole : dPosition;
}

/// Bilinear value at (dX, dY) of what rAt(x, y) gives.
double Interpolate(double dX, double dY, auto rAt)
{
    const double dLeft = std::floor(dX), dTop = std::floor(dY);
    const double dU = dX - dLeft, dV = dY - dTop;
    double dValue = 0;
    for (const int y : {0, 1})
        for (const int x : {0, 1})
        {
            const double dWeight = (x ? dU : 1 - dU) * (y ? dV : 1 - dV);
            if (dWeight > 0) dValue += dWeight * rAt(int(dLeft) + x, int(dTop) + y);
        }
    return dValue;
}

double Rescale(double dValue, const OracleAlign& rAlign)
{
    const auto& s = rAlign.afScale;
    double dResult = s[0] * dValue + s[1];
    if (rAlign.bLog) dResult = s[4] * std::log(s[5] / std::max(double(s[3]), dResult));
    return std::min(double(s[2]), dResult);
}
}  // namespace

Images RandomImages(int iX, int iY, int iN, float fLow, float fHigh, unsigned uiSeed)
{
    Images aImages(iX, iY, iN);
    std::mt19937 aRandom(uiSeed);
    std::uniform_real_distribution<float> aValues(fLow, fHigh);
    for (float& rfValue : aImages.vf) rfValue = aValues(aRandom);
    return aImages;
}

std::vector<unsigned> GetList(const TestJob& rJob)
{
    if (!rJob.vuiList.empty()) return rJob.vuiList;
    std::vector<unsigned> vuiAll(rJob.vfAngles.size());
    std::iota(vuiAll.begin(), vuiAll.end(), 0U);
    return vuiAll;
}

COracle::COracle(const TestJob& rJob) : m_aJob(rJob), m_vuiList(GetList(rJob))
{
    const OracleBox aVolume = {{0, 0}, {m_aJob.iVolX / 2.0f, m_aJob.iVolZ / 2.0f}};
    const OracleBox aBox = m_aJob.aBox.value_or(OracleBox{});
    for (unsigned n = 0; n < m_aJob.vfAngles.size(); ++n)
    {
        const double dAngle = m_aJob.vfAngles[n] * std::numbers::pi / 180;
        m_vfCos.push_back(float(std::sin(std::numbers::pi / 2 - dAngle)));
        m_vfSin.push_back(float(std::sin(dAngle)));
        const Values vdPrj = PathLengths(aVolume, n);
        Values vdPre = PathLengths(aBox, n);
        if (aBox.afHalf[0] / float(m_aJob.iProjX) > 10)  // an endless slab
            vdPre.assign(vdPre.size(), 2 * aBox.afHalf[1] / std::cos(dAngle));
        for (std::size_t x = 0; x < vdPrj.size(); ++x)
        {
            m_vdPre.push_back(vdPrj[x] / vdPre[x]);
            m_vdPrj.push_back(1 / vdPrj[x]);
        }
    }
}

/// Bilinear value at voxel coordinates; 0 outside of the slice.
double COracle::mSample(const Values& rSlice, double dX, double dZ) const
{
    const int iX = m_aJob.iVolX, iZ = m_aJob.iVolZ;
    const auto At = [&](int x, int z)
    { return x < 0 || z < 0 || x >= iX || z >= iZ ? 0.0 : rSlice[std::size_t(z) * iX + x]; };
    return Interpolate(Snap(dX), Snap(dZ), At);
}

Values COracle::Project(const Values& rSlice, unsigned uiProj) const
{
    const int iVolX = m_aJob.iVolX, iVolZ = m_aJob.iVolZ;
    const float fCos = m_vfCos[uiProj], fSin = m_vfSin[uiProj];
    const int iSamples = int(iVolZ * fCos + iVolX * std::fabs(fSin) + 0.5f) + 2;
    Values vdSums(m_aJob.iProjX);
    for (int i = 0; i < m_aJob.iProjX; ++i)
        for (int k = 0; k < iSamples; ++k)
        {
            const double dU = i - (m_aJob.iProjX - 1) / 2.0, dT = k - (iSamples - 1) / 2.0;
            vdSums[i] += mSample(rSlice, (iVolX - 1) / 2.0 + dU * fCos - dT * fSin,
                                 (iVolZ - 1) / 2.0 + dU * fSin + dT * fCos);
        }
    return vdSums;
}

Values COracle::PathLengths(const OracleBox& rBox, unsigned uiProj) const
{
    const double dAngle = m_aJob.vfAngles[uiProj] * std::numbers::pi / 180;
    // A point of the ray of detector coordinate u: u * (cos, sin) + t * (-sin, cos).
    const double adNormal[2] = {std::sin(std::numbers::pi / 2 - dAngle), std::sin(dAngle)};
    const double adAlong[2] = {-adNormal[1], adNormal[0]};
    Values vdLengths;
    for (int i = 0; i < m_aJob.iProjX; ++i)
    {
        const double dU = i - (m_aJob.iProjX - 1) / 2.0;
        double dEnter = -std::numeric_limits<double>::infinity(), dLeave = -dEnter;
        for (int k = 0; k < 2; ++k)  // clipped by the two pairs of sides
        {
            const double dFrom = rBox.afCentre[k] - dU * adNormal[k];
            if (std::fabs(adAlong[k]) < 1e-9)
            {
                if (std::fabs(dFrom) > rBox.afHalf[k]) dLeave = dEnter;  // misses
                continue;
            }
            const double dA = (dFrom - rBox.afHalf[k]) / adAlong[k];
            const double dB = (dFrom + rBox.afHalf[k]) / adAlong[k];
            dEnter = std::max(dEnter, std::min(dA, dB));
            dLeave = std::min(dLeave, std::max(dA, dB));
        }
        vdLengths.push_back(dLeave > dEnter ? std::max(dLeave - dEnter, 1.0) : 1.0);
    }
    return vdLengths;
}

Values COracle::Compare(const Values& rMeasured, const Values& rSlice, std::pair<int, int> aSet,
                        bool bEm) const
{
    Values vdRows(rMeasured.size());
    for (int p = aSet.first; p < aSet.second; ++p)
    {
        const Values vdSums = Project(rSlice, m_vuiList[p]);
        for (int x = 0; x < m_aJob.iProjX; ++x)
        {
            const std::size_t k = std::size_t(m_vuiList[p]) * m_aJob.iProjX + x;
            const double dMeasured = rMeasured[k];
            vdRows[k] = !bEm                               ? dMeasured - vdSums[x]
                        : dMeasured >= 0 && vdSums[x] != 0 ? dMeasured / vdSums[x]
                                                           : 1.0;
        }
    }
    return vdRows;
}

void COracle::Update(const Values& rRows, const OracleRanges& rRanges, std::pair<int, int> aSet,
                     double dRelax, bool bEm, Values& rSlice) const
{
    const int iX = m_aJob.iProjX, iVolX = m_aJob.iVolX, iVolZ = m_aJob.iVolZ;
    for (int z = 0; z < iVolZ; ++z)
        for (int x = 0; x < iVolX; ++x)
        {
            double dSum = 0;
            int iHits = 0;
            for (int p = aSet.first; p < aSet.second; ++p)
            {
                const unsigned n = m_vuiList[p];
                const float fX = x - (iVolX - 1) * 0.5f, fZ = z - (iVolZ - 1) * 0.5f;
                const float fU = (iX - 1) * 0.5f + (fX * m_vfCos[n] + fZ * m_vfSin[n]);
                const auto [fFirst, fEnd] = rRanges[n];
                if (fU < fFirst || (bEm ? fU >= fEnd - 1 : fU > fEnd - 1)) continue;
                const auto At = [&](int i, int)
                { return rRows[std::size_t(n) * iX + std::min(i, iX - 1)]; };
                dSum += Interpolate(std::clamp(fU, 0.0f, float(iX - 1)), 0, At);
                ++iHits;
            }
            double& rdValue = rSlice[std::size_t(z) * iVolX + x];
            const double dNew =
                bEm ? rdValue * (1 + dRelax * (dSum - iHits) / (aSet.second - aSet.first))
                    : rdValue + dRelax * dSum / (iHits + 1e-6);
            rdValue = dNew > 0 || m_aJob.bFree ? dNew : 0;
        }
}

/// A row counts as a multiple of 256 columns, the last pixel filling it up.
Values COracle::SumAbs(const Values& rRows) const
{
    Values vdSums;
    const int iX = m_aJob.iProjX, iColumns = (iX + 255) / 256 * 256;
    for (const unsigned n : m_vuiList)
    {
        double dSum = 0;
        for (int x = 0; x < iColumns; ++x)
        {
            const double dValue = rRows[std::size_t(n) * iX + std::min(x, iX - 1)];
            if (dValue > -1e15f) dSum += std::fabs(dValue);
        }
        vdSums.push_back(dSum);
    }
    return vdSums;
}

Values SmoothVolume(const Images& rVolume, const Images& rKernel)
{
    const auto At = [&](int x, int y, int z)
    {
        return rVolume.At(std::clamp(x, 0, rVolume.iX - 1), std::clamp(y, 0, rVolume.iY - 1),
                          std::clamp(z, 0, rVolume.iN - 1));
    };
    Values vd;
    for (int z = 0; z < rVolume.iN; ++z)
        for (int y = 0; y < rVolume.iY; ++y)
            for (int x = 0; x < rVolume.iX; ++x)
            {
                vd.push_back(0);
                for (int c = 0; c < rKernel.iN; ++c)
                    for (int b = 0; b < rKernel.iY; ++b)
                        for (int a = 0; a < rKernel.iX; ++a)
                            vd.back() += double(rKernel.At(a, b, c)) * At(x + a - rKernel.iX / 2,
                                                                          y + b - rKernel.iY / 2,
                                                                          z + c - rKernel.iN / 2);
            }
    return vd;
}

Values TransformImage(const OracleAlign& rAlign, const Images& rMeasured, int n, int iX, int iY)
{
    const auto& m = rAlign.afMatrix;
    Values vd;
    for (int y = 0; y < iY; ++y)
        for (int x = 0; x < iX; ++x)
        {
            const float fX = float(x), fY = float(y);
            const float fU = m[4] + (fX * m[0] + m[1] * fY), fV = (fX * m[2] + fY * m[3]) + m[5];
            const bool bOn = fU >= 0 && fU <= float(rMeasured.iX - 1) && fV >= 0 &&
                             fV <= float(rMeasured.iY - 1);
            const auto At = [&](int i, int j) { return double(rMeasured.At(i, j, n)); };
            vd.push_back(bOn ? Rescale(Interpolate(fU, fV, At), rAlign)
                             : std::numeric_limits<double>::quiet_NaN());
        }
    return vd;
}

AlignSums SumImages(std::span<const float> fAligned, const Values& rTransed)
{
    AlignSums aSums;
    for (std::size_t i = 0; i < rTransed.size(); ++i)
    {
        const double dA = fAligned[i], dT = rTransed[i];
        if (std::isnan(dT)) continue;
        const double adTerms[] = {dA,           dT,           dA * dA,           dT * dT, dA * dT,
                                  std::abs(dA), std::abs(dT), std::abs(dA - dT), 1};
        for (std::size_t k = 0; k < aSums.ad.size(); ++k)
        {
            aSums.ad[k] += adTerms[k];
            aSums.adSize[k] += std::abs(adTerms[k]);
        }
    }
    return aSums;
}
