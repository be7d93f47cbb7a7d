#pragma once

#include "Mrcfile/App/SaveImage.h"
#include "Mrcfile/Header/SaveExtHeader.h"
#include "Mrcfile/Header/SaveMainHeader.h"

/// Writes a stack of sections as an MRC file with one extended-header record per section.
///
/// The file is valid after every section. Header statistics accumulate for the life of the object.
class CSaveMrc
{
public:
    CSaveMrc() = default;
    ~CSaveMrc() { CloseFile(); }
    CSaveMrc(const CSaveMrc&) = delete;
    CSaveMrc& operator=(const CSaveMrc&) = delete;

    /// Closes what is open and creates pcPath; false with GetError() for an empty name or less than
    /// 3 GiB free on the root file system, without a text when the file cannot be made.
    [[nodiscard]] bool OpenFile(const char* pcPath);
    /// The same for the name with a four-digit serial inserted before its extension.
    [[nodiscard]] bool OpenFile(const char* pcPath, int iSerial);
    void CloseFile();
    const char* GetError() const { return m_cError; }

    void SetMode(int iMode);                    ///< 0 uint8, 1 int16, 2 float, 6 uint16, 7 int32
    void SetImageSize(int iSizeX, int iSizeY);  ///< before trimming
    void TrimEdge(int iTrimX, int iTrimY);      ///< pixels removed on each side
    void SetImage(const void* pvImage);         ///< borrowed until the next DoIt
    void SetNthLabel(int iLabel, const char* pcText);

    void SetTiltA(float fVal) { m_aSaveExtHeader.SetTiltA(fVal); }
    void SetTiltB(float fVal) { m_aSaveExtHeader.SetTiltB(fVal); }
    void SetStageX(float fVal) { m_aSaveExtHeader.SetStageX(fVal); }
    void SetStageY(float fVal) { m_aSaveExtHeader.SetStageY(fVal); }
    void SetStageZ(float fVal) { m_aSaveExtHeader.SetStageZ(fVal); }
    void SetShiftX(float fVal) { m_aSaveExtHeader.SetShiftX(fVal); }
    void SetShiftY(float fVal) { m_aSaveExtHeader.SetShiftY(fVal); }
    void SetDefocus(float fVal) { m_aSaveExtHeader.SetDefocus(fVal); }
    void SetExposure(float fVal) { m_aSaveExtHeader.SetExposure(fVal); }
    void SetTiltAxis(float fVal) { m_aSaveExtHeader.SetTiltAxis(fVal); }
    void SetMag(float fVal) { m_aSaveExtHeader.SetMag(fVal); }
    void SetNthExtField(int iField, float fVal) { m_aSaveExtHeader.SetNthField(iField, fVal); }
    void SetPixelSize(float fSize);

    /// Writes the current image as section iSection, or behind the last one; false when no file is
    /// open or a write failed. Clears the record of the section afterwards.
    bool DoIt(int iSection);
    bool DoIt() { return DoIt(m_iNextImage); }

private:
    void mSetSizes();
    void mFoldStatistics();

    int m_iFile = -1;
    int m_iSize[2] = {0, 0};
    int m_iTrim[2] = {0, 0};
    int m_iMode = 0;
    CSaveMainHeader m_aSaveMainHeader;
    CSaveExtHeader m_aSaveExtHeader;
    CSaveImage m_aSaveImage;
    const void* m_pvImage = nullptr;
    int m_iNextImage = 0;  // one past the highest section written
    char m_cError[128] = "";
};
