#include "talven/VolumeFile.h"

#include "talven/Text.h"

namespace talven
{
namespace
{

/// Least and greatest number of a mode; 0 and 0 where it has no whole numbers.
std::pair<int, int> GetLimits(EMrcMode eMode)
{
    if (eMode == EMrcMode::eInt8) return {-128, 127};
    if (eMode == EMrcMode::eInt16) return {-32768, 32767};
    return {0, 0};
}

std::array<int, 3> GetWhole(const JobSize& rSize)
{
    return {rSize.iVolX, rSize.iProjY, rSize.iVolZ};
}

}  // namespace

bool VolumeForm::NeedsRange() const
{
    return GetLimits(eMode).second > 0 && !aRange;
}

bool CheckForm(const VolumeForm& rForm, const JobSize& rSize, std::string& rError)
{
    for (std::size_t i = 0; i < 3; ++i)
        if (rForm.aiSize[i] > GetWhole(rSize)[i])
            return Fail(rError, Format("trim: %d voxels of %d along %c", rForm.aiSize[i],
                                       GetWhole(rSize)[i], "XYZ"[i]));
    if (rForm.aRange && GetLimits(rForm.eMode).second == 0)
        return Fail(rError, "scale: only modes 0 and 1 have whole numbers");
    return true;
}

bool CVolumeFile::Create(const std::string& strPath, const VolumeForm& rForm, const JobSize& rSize,
                         double dPixel, const std::string& strLabel)
{
    m_aForm = rForm;
    m_aiWhole = GetWhole(rSize);
    for (std::size_t i = 0; i < 3; ++i)
    {
        int& riSize = m_aForm.aiSize[i];
        riSize = riSize > 0 ? riSize : m_aiWhole[i];
        m_aiFirst[i] = (m_aiWhole[i] - riSize) / 2;
    }
    MrcStorage aStorage = {rForm.eMode};
    std::string strAll = strLabel;
    if (rForm.aRange)
    {
        const auto [iLeast, iMost] = GetLimits(rForm.eMode);
        const auto [dLow, dHigh] = *rForm.aRange;
        aStorage.dGain = dHigh > dLow ? (iMost - iLeast) / (dHigh - dLow) : 1;
        aStorage.dOffset = iLeast - dLow * aStorage.dGain;
        strAll += Format("\nvalue = (number - %.9g) / %.9g", aStorage.dOffset, aStorage.dGain);
    }
    const auto [iX, iY, iZ] = m_aForm.aiSize;
    return m_aFile.Create(strPath, iX, rForm.bXzy ? iZ : iY, rForm.bXzy ? iY : iZ, dPixel, true,
                          strAll, aStorage);
}

bool CVolumeFile::WriteSlice(int iZ, std::span<const float> fSlice)
{
    const auto [iX, iY, iSlices] = m_aForm.aiSize;
    int iTo = iZ - m_aiFirst[2];
    if (iTo < 0 || iTo >= iSlices) return true;
    if (m_aForm.bFlipZ) iTo = iSlices - 1 - iTo;
    const auto tWhole = static_cast<std::size_t>(m_aiWhole[0]);
    std::vector<float> vfRows;
    for (int y = 0; y < iY; ++y)
    {
        const auto fRow = fSlice.subspan(
            std::size_t(m_aiFirst[1] + y) * tWhole + std::size_t(m_aiFirst[0]), std::size_t(iX));
        if (m_aForm.bXzy && !m_aFile.WriteRows(y, iTo, fRow)) return false;
        vfRows.insert(vfRows.end(), fRow.begin(), fRow.end());
    }
    return m_aForm.bXzy || m_aFile.WriteRows(iTo, 0, vfRows);
}

}  // namespace talven
