#include "talven/MrcWriter.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <vector>

#include "Half.h"
#include "talven/ImageStatistics.h"
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

/// Merges a section into those before: no cancellation, however large the file or its mean.
/// Missing pixels are no values: they would be the least and hide all others.
void CMrcWriter::mAddSection(std::span<const float> fPixels)
{
    const ImageStatistics aSection = MeasureImage(fPixels);
    if (aSection.tValues == 0) return;
    const double dBefore = m_dCount;
    const auto dCount = static_cast<double>(aSection.tValues);
    const double dShift = aSection.dMean - m_dMean;
    m_dSquares += aSection.dSquares + dShift * dShift * dBefore * dCount / (dBefore + dCount);
    m_dMean += dShift * dCount / (dBefore + dCount);
    m_dCount += dCount;
    m_aHeader.fMin = dBefore == 0 ? aSection.fMin : std::min(m_aHeader.fMin, aSection.fMin);
    m_aHeader.fMax = dBefore == 0 ? aSection.fMax : std::max(m_aHeader.fMax, aSection.fMax);
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
