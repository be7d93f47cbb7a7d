#include "talven/MrcWriter.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <vector>

#include "talven/Alignment.h"
#include "talven/Text.h"

namespace talven
{

bool CMrcWriter::Create(const std::string& strPath, int iX, int iY, int iZ, double dPixel,
                        bool bVolume, const std::string& strLabel)
{
    m_aHeader = MrcHeader{};
    m_aHeader.iX = iX;
    m_aHeader.iY = iY;
    m_aHeader.iZ = iZ;
    m_aHeader.dPixel = dPixel;
    m_aHeader.bVolume = bVolume;
    m_aHeader.strLabel = strLabel;
    m_iWritten = 0;
    m_dMean = m_dSquares = m_dCount = 0;
    const std::uint64_t ulBytes = m_aHeader.GetDataOffset() +
                                  m_aHeader.GetSectionPixels() * std::uint64_t(iZ) * sizeof(float);
    return m_aFile.Create(strPath, ulBytes) || Fail(m_strError, m_aFile.GetError());
}

bool CMrcWriter::WriteSection(std::span<const float> fPixels)
{
    if (m_iWritten == m_aHeader.iZ || fPixels.size() != m_aHeader.GetSectionPixels())
        return Fail(m_strError, Format("%s: section %d of %zu pixels does not fit",
                                       m_aFile.GetPath().c_str(), m_iWritten + 1, fPixels.size()));
    const std::uint64_t ulOffset =
        m_aHeader.GetDataOffset() + std::uint64_t(m_iWritten) * fPixels.size_bytes();
    if (!m_aFile.WriteAt(ulOffset, std::as_bytes(fPixels)))
        return Fail(m_strError, m_aFile.GetError());
    mAddSection(fPixels);
    ++m_iWritten;
    return true;
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
    if (m_iWritten != m_aHeader.iZ)
    {
        m_aFile.Discard();
        return Fail(m_strError, Format("%s: %d of %d sections written", m_aFile.GetPath().c_str(),
                                       m_iWritten, m_aHeader.iZ));
    }
    m_aHeader.fMean = static_cast<float>(m_dMean);
    m_aHeader.fRms = static_cast<float>(std::sqrt(m_dSquares / std::max(1.0, m_dCount)));
    return (m_aFile.WriteAt(0, m_aHeader.Format()) && m_aFile.Commit()) ||
           Fail(m_strError, m_aFile.GetError());
}

}  // namespace talven
