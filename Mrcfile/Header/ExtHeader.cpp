#include "Mrcfile/Header/ExtHeader.h"

#include <unistd.h>

#include "Mrcfile/Header/MainHeader.h"
#include "Util/Util_SwapByte.h"

namespace
{
off_t RecordOffset(int iRecord)
{
    return CMainHeader::GetSize() + off_t{128} * iRecord;
}
bool InRegion(int iRecord)
{
    return iRecord >= 0 && iRecord < CExtHeader::m_iRecords;
}
}  // namespace

float CExtHeader::GetNthField(int iField) const
{
    return iField >= 0 && iField < m_iFields ? m_afFields[iField] : 0.0f;
}

void CExtHeader::SetNthField(int iField, float fValue)
{
    if (iField >= 0 && iField < m_iFields) m_afFields[iField] = fValue;
}

bool CExtHeader::Save(int iFile, int iRecord) const
{
    return InRegion(iRecord) &&
           pwrite(iFile, m_afFields.data(), GetSize(), RecordOffset(iRecord)) == GetSize();
}

bool CExtHeader::Load(int iFile, int iRecord)
{
    return InRegion(iRecord) &&
           pread(iFile, m_afFields.data(), GetSize(), RecordOffset(iRecord)) == GetSize();
}

void CExtHeader::SwapByte()
{
    for (float& rField : m_afFields) rField = Util_SwapByte::DoIt(rField);
}
