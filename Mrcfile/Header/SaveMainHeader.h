#pragma once

#include "Mrcfile/Header/MainHeader.h"

/// Fills and writes the main header of a file under construction.
class CSaveMainHeader
{
public:
    CSaveMainHeader() { Reset(); }
    void SetSizeX(int iSize, int iTrim) { m_aHeader.nx = mTrimmed(iSize, iTrim); }
    void SetSizeY(int iSize, int iTrim) { m_aHeader.ny = mTrimmed(iSize, iTrim); }
    void SetSizeZ(int iSections);  ///< only grows
    void SetMode(int iMode) { m_aHeader.mode = iMode; }
    void SetPixelSize(float fSize);  ///< all three lengths; not multiplied by the grid
    void SetMean(float fMean);       ///< folded into the mean of the section means
    void SetMin(float fMin);         ///< also replaces a minimum of exactly 0
    void SetMax(float fMax);         ///< also replaces a maximum of exactly 0
    /// Stores at most 80 bytes of the text and its terminator in label iLabel, 0 to 9.
    void SetNthLabel(const char* pcText, int iLabel);
    const CMainHeader& GetHeader() const { return m_aHeader; }

    /// Writes the header at the start of the file; false for descriptor -1 or a failed write.
    bool DoIt(int iFile) const;
    void Reset();

private:
    void mSetDefault();
    static int mTrimmed(int iSize, int iTrim);
    CMainHeader m_aHeader{};
    int m_iSavedImages = 0;
};
