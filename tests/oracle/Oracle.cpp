#include "tests/oracle/Oracle.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
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

/// Bilinear value at voxel coordinates (dX, dZ); 0 outside of the slice.
double Sample(const OracleImage& rSlice, int iX, int iZ, double dX, double dZ)
{
    dX = Snap(dX);
    dZ = Snap(dZ);
    const auto At = [&](int x, int z)
    { return x < 0 || z < 0 || x >= iX || z >= iZ ? 0.0 : rSlice[std::size_t(z) * iX + x]; };
    const double dLeft = std::floor(dX), dTop = std::floor(dZ);
    const double dU = dX - dLeft, dV = dZ - dTop;
    const int x = int(dLeft), z = int(dTop);
    return (1 - dV) * ((1 - dU) * At(x, z) + dU * At(x + 1, z)) +
           dV * ((1 - dU) * At(x, z + 1) + dU * At(x + 1, z + 1));
}
}  // namespace

COracle::COracle(OracleJob aJob) : m_aJob(std::move(aJob))
{
    const OracleBox aVolume = {{0, 0}, {m_aJob.iVolX / 2.0f, m_aJob.iVolZ / 2.0f}};
    const OracleBox aBox = m_aJob.aBox.value_or(OracleBox{});
    for (unsigned n = 0; n < m_aJob.vfAngles.size(); ++n)
    {
        const double dAngle = m_aJob.vfAngles[n] * std::numbers::pi / 180;
        m_vfCos.push_back(float(std::sin(std::numbers::pi / 2 - dAngle)));
        m_vfSin.push_back(float(std::sin(dAngle)));
        const std::vector<double> vdPrj = PathLengths(aVolume, n);
        std::vector<double> vdPre = PathLengths(aBox, n);
        if (aBox.afHalf[0] / m_aJob.iProjX > 10)  // an endless slab
            vdPre.assign(vdPre.size(), 2 * aBox.afHalf[1] / std::cos(dAngle));
        for (std::size_t x = 0; x < vdPrj.size(); ++x)
        {
            m_vdPre.push_back(vdPrj[x] / vdPre[x]);
            m_vdPrj.push_back(1 / vdPrj[x]);
        }
    }
}

std::vector<double> COracle::Project(const OracleImage& rSlice, unsigned uiProj) const
{
    const int iVolX = m_aJob.iVolX, iVolZ = m_aJob.iVolZ;
    const float fCos = m_vfCos[uiProj], fSin = m_vfSin[uiProj];
    const int iSamples = int(iVolZ * fCos + iVolX * std::fabs(fSin) + 0.5f) + 2;
    std::vector<double> vdSums(m_aJob.iProjX);
    std::minstd_rand aRandom(m_aJob.uiSeed * 1000003 + uiProj);
    std::uniform_real_distribution<double> aShift(-m_aJob.dShift, m_aJob.dShift);
    for (int i = 0; i < m_aJob.iProjX; ++i)
    {
        const double dShiftX = m_aJob.dShift > 0 ? aShift(aRandom) : 0;
        const double dShiftZ = m_aJob.dShift > 0 ? aShift(aRandom) : 0;
        for (int k = 0; k < iSamples; ++k)
        {
            const double dU = i - (m_aJob.iProjX - 1) / 2.0, dT = k - (iSamples - 1) / 2.0;
            const double dX = (iVolX - 1) / 2.0 + dU * fCos - dT * fSin + dShiftX;
            const double dZ = (iVolZ - 1) / 2.0 + dU * fSin + dT * fCos + dShiftZ;
            vdSums[i] += Sample(rSlice, iVolX, iVolZ, dX, dZ);
        }
    }
    return vdSums;
}

std::vector<double> COracle::PathLengths(const OracleBox& rBox, unsigned uiProj) const
{
    const double dAngle = m_aJob.vfAngles[uiProj] * std::numbers::pi / 180;
    // A point of the ray of detector coordinate u: u * (cos, sin) + t * (-sin, cos).
    const double adNormal[2] = {std::sin(std::numbers::pi / 2 - dAngle), std::sin(dAngle)};
    const double adAlong[2] = {-adNormal[1], adNormal[0]};
    std::vector<double> vdLengths;
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

void COracle::Reproject(const OracleImage& rSlice, OracleImage& rProjs) const
{
    for (const unsigned n : m_aJob.vuiList)
    {
        const std::vector<double> vdSums = Project(rSlice, n);
        for (int x = 0; x < m_aJob.iProjX; ++x)
            rProjs[std::size_t(n) * m_aJob.iProjX + x] =
                vdSums[x] / (m_aJob.aBox ? mPreWeight(n, x) : 1.0);
    }
}

OracleRfactor COracle::Reconstruct(OracleImage aMeasured, const OracleRanges& rRanges,
                                   OracleImage& rSlice, int iFirst, int iEnd) const
{
    const std::pair<int, int> aAll = {0, int(m_aJob.vuiList.size())};
    if (m_aJob.eMethod == EMethod::eBackProj)
    {
        if (m_aJob.aBox)
            for (std::size_t k = 0; k < aMeasured.size(); ++k)
                aMeasured[k] *= m_vdPre[k] * m_vdPrj[k];
        mUpdate(aMeasured, rRanges, aAll, 1, EUpdate::eSart, rSlice);
        return {};
    }

    for (std::size_t k = 0; k < aMeasured.size(); ++k) aMeasured[k] *= m_vdPre[k];
    OracleRfactor aRfactor;
    if (iFirst == 0) aRfactor.vdRaw = mSumAbs(aMeasured);
    for (int i = iFirst; i < (iEnd < 0 ? m_aJob.iIterations : iEnd); ++i)
    {
        const bool bEm = m_aJob.eMethod == EMethod::eEm && i > 0;
        const EUpdate eUpdate = bEm ? EUpdate::eEm : EUpdate::eSart;
        for (std::size_t s = 0; s < m_aJob.vSets.size(); ++s)
        {
            OracleImage aRows = mCompare(aMeasured, rSlice, m_aJob.vSets[s], eUpdate);
            if (!bEm)
                for (std::size_t k = 0; k < aRows.size(); ++k) aRows[k] *= m_vdPrj[k];
            const double dRelax =
                m_aJob.vfRelax.empty() ? 1 : m_aJob.vfRelax[i * m_aJob.vSets.size() + s];
            mUpdate(aRows, rRanges, m_aJob.vSets[s], dRelax, eUpdate, rSlice);
        }
        for (const double dSum : mSumAbs(mCompare(aMeasured, rSlice, aAll, EUpdate::eSart)))
            aRfactor.vdDif.push_back(dSum);
    }
    return aRfactor;
}

/// Differences or ratios of the set; rows of other projections are 0.
OracleImage COracle::mCompare(const OracleImage& rMeasured, const OracleImage& rSlice,
                              std::pair<int, int> aSet, EUpdate eUpdate) const
{
    OracleImage aRows(rMeasured.size());
    for (int p = aSet.first; p < aSet.second; ++p)
    {
        const unsigned n = m_aJob.vuiList[p];
        const std::vector<double> vdSums = Project(rSlice, n);
        for (int x = 0; x < m_aJob.iProjX; ++x)
        {
            const std::size_t k = std::size_t(n) * m_aJob.iProjX + x;
            const double dMeasured = rMeasured[k];
            if (eUpdate == EUpdate::eSart)
                aRows[k] = dMeasured - vdSums[x];
            else
                aRows[k] = dMeasured >= 0 && vdSums[x] != 0 ? dMeasured / vdSums[x] : 1.0;
        }
    }
    return aRows;
}

void COracle::mUpdate(const OracleImage& rRows, const OracleRanges& rRanges,
                      std::pair<int, int> aSet, double dRelax, EUpdate eUpdate,
                      OracleImage& rSlice) const
{
    const int iVolX = m_aJob.iVolX, iVolZ = m_aJob.iVolZ;
    for (int z = 0; z < iVolZ; ++z)
        for (int x = 0; x < iVolX; ++x)
        {
            double dSum = 0;
            int iHits = 0;
            for (int p = aSet.first; p < aSet.second; ++p)
            {
                const unsigned n = m_aJob.vuiList[p];
                const float fX = x - (iVolX - 1) * 0.5f, fZ = z - (iVolZ - 1) * 0.5f;
                const float fU = (m_aJob.iProjX - 1) * 0.5f + (fX * m_vfCos[n] + fZ * m_vfSin[n]);
                const auto [iFirst, iEnd] = rRanges[n];
                const float fLast = float(iEnd) - 1;
                if (fU < float(iFirst) || (eUpdate == EUpdate::eSart ? fU > fLast : fU >= fLast))
                    continue;
                const double dU = std::clamp(
                    (m_aJob.iProjX - 1) / 2.0 + double(fX) * m_vfCos[n] + double(fZ) * m_vfSin[n],
                    double(iFirst), double(iEnd - 1));
                const int i = std::min(int(dU), std::max(m_aJob.iProjX - 2, 0));
                const double* pdRow = &rRows[std::size_t(n) * m_aJob.iProjX];
                dSum += m_aJob.iProjX == 1 ? pdRow[0]
                                           : pdRow[i] * (i + 1 - dU) + pdRow[i + 1] * (dU - i);
                ++iHits;
            }
            double& rdValue = rSlice[std::size_t(z) * iVolX + x];
            const double dNew =
                eUpdate == EUpdate::eSart
                    ? rdValue + dRelax * dSum / (iHits + 1e-6)
                    : rdValue * (1 + dRelax * (dSum - iHits) / (aSet.second - aSet.first));
            rdValue = dNew > 0 ? dNew : 0;
        }
}

/// Sums of |value| per list position; each row counts as a multiple of 256 columns, the last pixel
/// filling it up.
std::vector<double> COracle::mSumAbs(const OracleImage& rRows) const
{
    std::vector<double> vdSums;
    const int iX = m_aJob.iProjX, iColumns = (iX + 255) / 256 * 256;
    for (const unsigned n : m_aJob.vuiList)
    {
        double dSum = 0;
        for (int x = 0; x < iColumns; ++x)
        {
            const double dValue = rRows[std::size_t(n) * iX + std::min(x, iX - 1)];
            if (dValue > -1e15) dSum += std::fabs(dValue);
        }
        vdSums.push_back(dSum);
    }
    return vdSums;
}

double OracleVolume::At(int x, int y, int z) const
{
    x = std::clamp(x, 0, iX - 1);
    y = std::clamp(y, 0, iY - 1);
    z = std::clamp(z, 0, iZ - 1);
    return vd[(std::size_t(z) * iY + y) * iX + x];
}

OracleVolume SmoothVolume(const OracleVolume& rVolume, const OracleVolume& rKernel)
{
    OracleVolume aResult = rVolume;
    double* pdVoxel = aResult.vd.data();
    for (int z = 0; z < rVolume.iZ; ++z)
        for (int y = 0; y < rVolume.iY; ++y)
            for (int x = 0; x < rVolume.iX; ++x)
            {
                double dSum = 0;
                for (int c = 0; c < rKernel.iZ; ++c)
                    for (int b = 0; b < rKernel.iY; ++b)
                        for (int a = 0; a < rKernel.iX; ++a)
                            dSum += rKernel.At(a, b, c) * rVolume.At(x + a - rKernel.iX / 2,
                                                                     y + b - rKernel.iY / 2,
                                                                     z + c - rKernel.iZ / 2);
                *pdVoxel++ = dSum;
            }
    return aResult;
}
