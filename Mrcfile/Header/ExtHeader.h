#pragma once

#include <array>

/// One 128-byte record of the extended header: 32 floats about one section.
///
/// The region holds 1024 records; record n lies at 1024 + 128 * n.
class CExtHeader
{
public:
    enum ESlot
    {
        eTiltA,  ///< degrees
        eTiltB,
        eStageX,
        eStageY,
        eStageZ,
        eShiftX,
        eShiftY,
        eDefocus,
        eExposure,
        eMean,  ///< mean intensity of the section
        eTiltAxis,
        ePixelSize,
        eMag,
        eFirstFree  ///< from here to 31
    };
    static constexpr int m_iFields = 32;
    static constexpr int m_iRecords = 1024;

    static constexpr int GetNumInts() { return 0; }
    static constexpr int GetNumFloats() { return m_iFields; }
    static constexpr int GetSize() { return m_iFields * 4; }
    static constexpr int GetTotalSize() { return GetSize() * m_iRecords; }

    void SetTiltA(float fVal) { m_afFields[eTiltA] = fVal; }
    void SetTiltB(float fVal) { m_afFields[eTiltB] = fVal; }
    void SetStageX(float fVal) { m_afFields[eStageX] = fVal; }
    void SetStageY(float fVal) { m_afFields[eStageY] = fVal; }
    void SetStageZ(float fVal) { m_afFields[eStageZ] = fVal; }
    void SetShiftX(float fVal) { m_afFields[eShiftX] = fVal; }
    void SetShiftY(float fVal) { m_afFields[eShiftY] = fVal; }
    void SetDefocus(float fVal) { m_afFields[eDefocus] = fVal; }
    void SetExp(float fVal) { m_afFields[eExposure] = fVal; }
    void SetMean(float fVal) { m_afFields[eMean] = fVal; }
    void SetTiltAxis(float fVal) { m_afFields[eTiltAxis] = fVal; }
    void SetPixelSize(float fVal) { m_afFields[ePixelSize] = fVal; }
    void SetMag(float fVal) { m_afFields[eMag] = fVal; }

    float GetNthField(int iField) const;         ///< 0 outside 0 to 31
    void SetNthField(int iField, float fValue);  ///< ignored outside 0 to 31
    void Reset() { m_afFields.fill(0.0f); }

    /// Writes, or reads back, record iRecord of an open file. \return false when not all of it
    /// moved or iRecord is outside the region
    bool Save(int iFile, int iRecord) const;
    bool Load(int iFile, int iRecord);
    void SwapByte();

private:
    std::array<float, m_iFields> m_afFields{};
};
