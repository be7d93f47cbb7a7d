#pragma once

#include <cstddef>

/// Writes the pixels of one section behind the headers, without a border of trimmed pixels.
class CSaveImage
{
public:
    void SetMode(int iMode) { m_iMode = iMode; }
    void SetSize(int iX, int iY);
    void SetTrim(int iX, int iY);
    void SetImage(const void* pvImage) { m_pvImage = pvImage; }  ///< borrowed, untrimmed
    static int GetPixelBytes(int iMode);  ///< 0 for a mode that is not written
    /// Writes section iSection, row by row; false when a write fails or there is nothing to write.
    bool DoIt(int iFile, int iSection) const;

private:
    int m_iMode = 0;
    int m_iSize[2] = {0, 0};
    int m_iTrim[2] = {0, 0};
    const void* m_pvImage = nullptr;
};
