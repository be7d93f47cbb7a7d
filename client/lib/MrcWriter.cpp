#include "talven/MrcWriter.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <iterator>
#include <vector>

#include "Half.h"
#include "talven/Alignment.h"
#include "talven/Text.h"

namespace talven
{

bool CMrcWriter::Create(const std::string& strPath, int iX, int iY, int iZ, double dPixel,
                        bool bVolume, const std::string& strLabel, const MrcStorage& rStorage)
{
    m_aHeader = MrcHeader{};
    m_aHeader.iX = iX;
    m_aHeader.iY = iY;
    m_aHeader.iZ = iZ;
    m_aHeader.dPixel = dPixel;
    m_aHeader.bVolume = bVolume;
    m_aHeader.strLabel = strLabel;
    m_aHeader.eMode = rStorage.eMode;
    m_aStorage = rStorage;
    m_ulWritten = 0;
    m_dMean = m_dSquares = m_dCount = 0;
    const std::uint64_t ulBytes =
        m_aHeader.GetDataOffset() +
        m_aHeader.GetSectionPixels() * std::uint64_t(iZ) * std::uint64_t(m_aHeader.GetPixelBytes());
    return m_aFile.Create(strPath, ulBytes) || Fail(m_strError, m_aFile.GetError());
}

bool CMrcWriter::WriteSection(std::span<const float> fPixels)
{
    const std::uint64_t ulSection = m_aHeader.GetSectionPixels();
    const auto iZ = static_cast<int>(m_ulWritten / std::max<std::uint64_t>(1, ulSection));
    if (fPixels.size() == ulSection) return WriteRows(iZ, 0, fPixels);
    return Fail(m_strError, Format("%s: section %d of %zu pixels does not fit",
                                   m_aFile.GetPath().c_str(), iZ + 1, fPixels.size()));
}

bool CMrcWriter::WriteRows(int iZ, int iY, std::span<const float> fPixels)
{
    const std::uint64_t ulFirst = std::uint64_t(iZ) * m_aHeader.GetSectionPixels() +
                                  std::uint64_t(iY) * std::uint64_t(m_aHeader.iX);
    if (iZ < 0 || iZ >= m_aHeader.iZ || iY < 0 ||
        ulFirst + fPixels.size() > std::uint64_t(m_aHeader.iZ) * m_aHeader.GetSectionPixels())
        return Fail(m_strError, Format("%s: row %d of section %d does not fit",
                                       m_aFile.GetPath().c_str(), iY + 1, iZ + 1));
    std::vector<float> vfStored;
    std::span<const std::byte> cBytes = std::as_bytes(fPixels);
    if (m_aHeader.eMode != EMrcMode::eFloat32)
    {
        vfStored.assign(fPixels.begin(), fPixels.end());
        mStore(vfStored);
        fPixels = vfStored;
        cBytes = m_vcRows;
    }
    if (!m_aFile.WriteAt(
            m_aHeader.GetDataOffset() + ulFirst * std::uint64_t(m_aHeader.GetPixelBytes()), cBytes))
        return Fail(m_strError, m_aFile.GetError());
    mAddSection(fPixels);
    m_ulWritten += fPixels.size();
    return true;
}

/// Values as the file holds them, and their bytes.
void CMrcWriter::mStore(std::span<float> fPixels)
{
    m_vcRows.clear();
    const auto Append = [this](auto tValue)
    {
        const auto acBytes = std::bit_cast<std::array<std::byte, sizeof(tValue)>>(tValue);
        m_vcRows.insert(m_vcRows.end(), acBytes.begin(), acBytes.end());
    };
    const auto Round = [](float fValue, double dLeast, double dMost)
    { return std::clamp(std::round(double(fValue)), dLeast, dMost); };
    for (float& rfPixel : fPixels)
    {
        rfPixel = static_cast<float>(rfPixel * m_aStorage.dGain + m_aStorage.dOffset);
        switch (m_aHeader.eMode)
        {
        case EMrcMode::eInt8:
            Append(static_cast<std::int8_t>(rfPixel = float(Round(rfPixel, -128, 127))));
            break;
        case EMrcMode::eInt16:
            Append(static_cast<std::int16_t>(rfPixel = float(Round(rfPixel, -32768, 32767))));
            break;
        default:
            rfPixel = HalfToFloat(FloatToHalf(rfPixel));
            Append(FloatToHalf(rfPixel));
        }
    }
}

/// Missing pixels are no values: they would be the least and hide all others.
void CMrcWriter::mAddSection(std::span<const float> fPixels)
{
    if (std::none_of(fPixels.begin(), fPixels.end(), IsMissing)) return mAddStatistics(fPixels);
    std::vector<float> vfValues;
    std::remove_copy_if(fPixels.begin(), fPixels.end(), std::back_inserter(vfValues), IsMissing);
    if (!vfValues.empty()) mAddStatistics(vfValues);
}

/// Mean and squares of a section in two passes over cached data, then merged into those of the
/// sections before: no cancellation, however large the file or its mean.
void CMrcWriter::mAddStatistics(std::span<const float> fPixels)
{
    constexpr std::size_t tLanes = 8;  // independent sums, so that they are vectorised
    std::array<float, tLanes> afMin, afMax;
    std::array<double, tLanes> adSum{}, adSquares{};
    afMin.fill(fPixels[0]);
    afMax.fill(fPixels[0]);
    const auto ForAll = [&fPixels](auto Visit)
    {
        const std::size_t tWhole = fPixels.size() / tLanes * tLanes;
        for (std::size_t i = 0; i < tWhole; i += tLanes)
            for (std::size_t l = 0; l < tLanes; ++l) Visit(l, fPixels[i + l]);
        for (std::size_t i = tWhole; i < fPixels.size(); ++i) Visit(0, fPixels[i]);
    };
    ForAll(
        [&](std::size_t l, float fPixel)
        {
            afMin[l] = fPixel < afMin[l] ? fPixel : afMin[l];
            afMax[l] = fPixel > afMax[l] ? fPixel : afMax[l];
            adSum[l] += fPixel;
        });
    double dSum = 0;
    for (const double dLane : adSum) dSum += dLane;
    const auto dCount = static_cast<double>(fPixels.size());
    const double dMean = dSum / dCount;
    ForAll([&](std::size_t l, float fPixel)
           { adSquares[l] += (fPixel - dMean) * (fPixel - dMean); });

    const double dBefore = m_dCount;
    const double dShift = dMean - m_dMean;
    for (const double dLane : adSquares) m_dSquares += dLane;
    m_dSquares += dShift * dShift * dBefore * dCount / (dBefore + dCount);
    m_dMean += dShift * dCount / (dBefore + dCount);
    m_dCount += dCount;

    const float fMin = *std::min_element(afMin.begin(), afMin.end());
    const float fMax = *std::max_element(afMax.begin(), afMax.end());
    m_aHeader.fMin = dBefore == 0 ? fMin : std::min(m_aHeader.fMin, fMin);
    m_aHeader.fMax = dBefore == 0 ? fMax : std::max(m_aHeader.fMax, fMax);
}

bool CMrcWriter::Finish()
{
    if (m_ulWritten != m_aHeader.GetSectionPixels() * std::uint64_t(m_aHeader.iZ))
    {
        m_aFile.Discard();
        return Fail(m_strError, m_aFile.GetPath() + ": not all sections were written");
    }
    m_aHeader.fMean = static_cast<float>(m_dMean);
    m_aHeader.fRms = static_cast<float>(std::sqrt(m_dSquares / std::max(1.0, m_dCount)));
    return (m_aFile.WriteAt(0, m_aHeader.Format()) && m_aFile.Commit()) ||
           Fail(m_strError, m_aFile.GetError());
}

}  // namespace talven
