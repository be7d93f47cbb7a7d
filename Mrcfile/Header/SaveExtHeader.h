#pragma once

#include "Mrcfile/Header/ExtHeader.h"

/// The record of the next section, and its way into the file.
class CSaveExtHeader : private CExtHeader
{
public:
    using CExtHeader::SetDefocus;
    using CExtHeader::SetMag;
    using CExtHeader::SetMean;
    using CExtHeader::SetNthField;
    using CExtHeader::SetPixelSize;
    using CExtHeader::SetShiftX;
    using CExtHeader::SetShiftY;
    using CExtHeader::SetStageX;
    using CExtHeader::SetStageY;
    using CExtHeader::SetStageZ;
    using CExtHeader::SetTiltA;
    using CExtHeader::SetTiltAxis;
    using CExtHeader::SetTiltB;
    void SetExposure(float fVal) { SetExp(fVal); }
    using CExtHeader::Reset;

    /// Saves the own, or a given, record as section iSection; false for descriptor -1 or a failure.
    bool DoIt(int iFile, int iSection) const { return DoIt(iFile, *this, iSection); }
    bool DoIt(int iFile, const CExtHeader& rRecord, int iSection) const
    {
        return iFile != -1 && rRecord.Save(iFile, iSection);
    }
};
