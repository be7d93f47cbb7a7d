#include "Mrcfile/SaveMrc.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <limits>

#include "Util/Util_FileName.h"
#include "Util/Util_Statistics.h"

bool CSaveMrc::OpenFile(const char* pcPath)
{
    CloseFile();
    if (pcPath == nullptr || pcPath[0] == '\0')
    {
        std::snprintf(m_cError, sizeof m_cError, "Error: Invalid file name. ");
        return false;
    }
    if (Util_FileName::GetFreeDiskSpace() < 3)
    {
        std::snprintf(m_cError, sizeof m_cError, "Error: Free disk space is less than 3 Gb. ");
        return false;
    }
    m_iFile = open(pcPath, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0664);
    return m_iFile != -1;
}

bool CSaveMrc::OpenFile(const char* pcPath, int iSerial)
{
    if (pcPath == nullptr || pcPath[0] == '\0') return OpenFile(pcPath);
    return OpenFile(Util_FileName(pcPath).InsertSerial(iSerial).c_str());
}

void CSaveMrc::CloseFile()
{
    if (m_iFile != -1) close(m_iFile);
    m_iFile = -1;
    m_iNextImage = 0;
}

void CSaveMrc::SetMode(int iMode)
{
    m_iMode = iMode;
    m_aSaveMainHeader.SetMode(iMode);
    m_aSaveImage.SetMode(iMode);
}

void CSaveMrc::SetImageSize(int iSizeX, int iSizeY)
{
    m_iSize[0] = iSizeX;
    m_iSize[1] = iSizeY;
    mSetSizes();
}

void CSaveMrc::TrimEdge(int iTrimX, int iTrimY)
{
    m_iTrim[0] = iTrimX;
    m_iTrim[1] = iTrimY;
    mSetSizes();
}

void CSaveMrc::mSetSizes()
{
    m_aSaveMainHeader.SetSizeX(m_iSize[0], m_iTrim[0]);
    m_aSaveMainHeader.SetSizeY(m_iSize[1], m_iTrim[1]);
    m_aSaveImage.SetSize(m_iSize[0], m_iSize[1]);
    m_aSaveImage.SetTrim(m_iTrim[0], m_iTrim[1]);
}

void CSaveMrc::SetImage(const void* pvImage)
{
    m_pvImage = pvImage;
    m_aSaveImage.SetImage(pvImage);
}

void CSaveMrc::SetNthLabel(int iLabel, const char* pcText)
{
    m_aSaveMainHeader.SetNthLabel(pcText, iLabel);
}

void CSaveMrc::SetPixelSize(float fSize)
{
    m_aSaveMainHeader.SetPixelSize(fSize);
    m_aSaveExtHeader.SetPixelSize(fSize);
}

bool CSaveMrc::DoIt(int iSection)
{
    if (m_iFile == -1 || m_pvImage == nullptr || iSection < 0 ||
        iSection == std::numeric_limits<int>::max())
        return false;
    mFoldStatistics();
    m_iNextImage = std::max(m_iNextImage, iSection + 1);
    m_aSaveMainHeader.SetSizeZ(m_iNextImage);

    const bool bHeader = m_aSaveMainHeader.DoIt(m_iFile);
    // The region has room for 1024 records; later sections have none.
    const bool bRecord =
        iSection >= CExtHeader::m_iRecords || m_aSaveExtHeader.DoIt(m_iFile, iSection);
    const bool bImage = m_aSaveImage.DoIt(m_iFile, iSection);
    m_aSaveExtHeader.Reset();
    return bHeader && bRecord && bImage;
}

void CSaveMrc::mFoldStatistics()
{
    int iPixels = 0;
    if (m_iSize[0] <= 0 || m_iSize[1] <= 0 ||
        __builtin_mul_overflow(m_iSize[0], m_iSize[1], &iPixels))
        return;
    const float fMean = static_cast<float>(Util_Statistics::Mean(m_pvImage, iPixels, m_iMode));
    m_aSaveMainHeader.SetMean(fMean);
    m_aSaveMainHeader.SetMin(static_cast<float>(Util_Statistics::Min(m_pvImage, iPixels, m_iMode)));
    m_aSaveMainHeader.SetMax(static_cast<float>(Util_Statistics::Max(m_pvImage, iPixels, m_iMode)));
    m_aSaveExtHeader.SetMean(fMean);
}
