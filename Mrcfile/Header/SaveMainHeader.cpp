#include "Mrcfile/Header/SaveMainHeader.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "Mrcfile/Header/ExtHeader.h"

void CSaveMainHeader::SetSizeZ(int iSections)
{
    m_aHeader.nz = std::max(m_aHeader.nz, iSections);
}

void CSaveMainHeader::SetPixelSize(float fSize)
{
    m_aHeader.xlen = m_aHeader.ylen = m_aHeader.zlen = fSize;
}

void CSaveMainHeader::SetMean(float fMean)
{
    const float fSaved = static_cast<float>(m_iSavedImages);
    m_aHeader.amean = (fSaved * m_aHeader.amean + fMean) / (fSaved + 1.0f);
    ++m_iSavedImages;
}

void CSaveMainHeader::SetMin(float fMin)
{
    if (fMin < m_aHeader.amin || m_aHeader.amin == 0.0f) m_aHeader.amin = fMin;
}

void CSaveMainHeader::SetMax(float fMax)
{
    if (fMax > m_aHeader.amax || m_aHeader.amax == 0.0f) m_aHeader.amax = fMax;
}

void CSaveMainHeader::SetNthLabel(const char* pcText, int iLabel)
{
    if (pcText == nullptr || iLabel < 0 || iLabel > 9) return;
    const std::size_t tBytes = std::min<std::size_t>(std::strlen(pcText) + 1, 80);
    std::memcpy(m_aHeader.data[iLabel], pcText, tBytes);
    ++m_aHeader.nlabl;  // counts writes, not labels
}

bool CSaveMainHeader::DoIt(int iFile) const
{
    return iFile != -1 && pwrite(iFile, &m_aHeader, sizeof m_aHeader, 0) == CMainHeader::GetSize();
}

void CSaveMainHeader::Reset()
{
    m_aHeader = CMainHeader{};
    m_iSavedImages = 0;
    mSetDefault();
}

void CSaveMainHeader::mSetDefault()
{
    m_aHeader.mx = m_aHeader.my = m_aHeader.mz = 1;
    m_aHeader.alpha = m_aHeader.beta = m_aHeader.gamma = 90.0f;
    m_aHeader.mapc = 1;
    m_aHeader.mapr = 2;
    m_aHeader.maps = 3;
    m_aHeader.nsymbt = CExtHeader::GetTotalSize();
    m_aHeader.dvid = -16224;
    m_aHeader.numintegers = CExtHeader::GetNumInts();
    m_aHeader.numfloats = CExtHeader::GetNumFloats();
    m_aHeader.sub = 1;
    m_aHeader.type = 5;
    m_aHeader.xtilt = m_aHeader.ytilt = m_aHeader.ztilt = 90.0f;
}

int CSaveMainHeader::mTrimmed(int iSize, int iTrim)
{
    const std::int64_t iTrimmed =
        iSize - 2 * std::int64_t{iTrim};  // of trims that are nonsense too
    return static_cast<int>(iTrimmed);
}
