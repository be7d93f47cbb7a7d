#include "Mrcfile/App/SaveImage.h"

#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "Mrcfile/Header/ExtHeader.h"
#include "Mrcfile/Header/MainHeader.h"

namespace
{
bool WriteAll(int iFile, const char* pcData, std::size_t tBytes, off_t tOffset)
{
    while (tBytes > 0)
    {
        const ssize_t tDone = pwrite(iFile, pcData, tBytes, tOffset);
        if (tDone < 0 && errno == EINTR) continue;
        if (tDone <= 0) return false;
        pcData += tDone;
        tOffset += tDone;
        tBytes -= static_cast<std::size_t>(tDone);
    }
    return true;
}
}  // namespace

void CSaveImage::SetSize(int iX, int iY)
{
    m_iSize[0] = iX;
    m_iSize[1] = iY;
}

void CSaveImage::SetTrim(int iX, int iY)
{
    m_iTrim[0] = iX;
    m_iTrim[1] = iY;
}

int CSaveImage::GetPixelBytes(int iMode)
{
    switch (iMode)
    {
    case 0:
        return 1;
    case 1:
    case 6:
        return 2;
    case 2:
    case 7:
        return 4;
    default:
        return 0;
    }
}

bool CSaveImage::DoIt(int iFile, int iSection) const
{
    const int iBytes = GetPixelBytes(m_iMode);
    if (iBytes == 0 || m_pvImage == nullptr || iSection < 0 || m_iTrim[0] < 0 || m_iTrim[1] < 0)
        return false;
    const std::int64_t iWidth = m_iSize[0] - 2 * std::int64_t{m_iTrim[0]};
    const std::int64_t iHeight = m_iSize[1] - 2 * std::int64_t{m_iTrim[1]};
    if (iWidth <= 0 || iHeight <= 0) return false;

    const std::size_t tRow = static_cast<std::size_t>(iWidth) * iBytes;
    off_t tOffset = 0;
    if (__builtin_mul_overflow(iHeight * static_cast<std::int64_t>(tRow), iSection, &tOffset) ||
        __builtin_add_overflow(tOffset, CMainHeader::GetSize() + CExtHeader::GetTotalSize(),
                               &tOffset))
        return false;
    const char* pcRow = static_cast<const char*>(m_pvImage) +
                        (std::size_t(m_iTrim[1]) * m_iSize[0] + m_iTrim[0]) * iBytes;
    for (std::int64_t y = 0; y < iHeight; ++y)
    {
        if (!WriteAll(iFile, pcRow, tRow, tOffset)) return false;
        pcRow += std::size_t(m_iSize[0]) * iBytes;
        tOffset += static_cast<off_t>(tRow);
    }
    return true;
}
