#include "server/Data/ByteOrder.h"

#include <cstring>

#include "Util/Util_SwapByte.h"
#include "server/Data/DataMode.h"

namespace
{
template <class T>
void SwapUnits(void* pvData, std::size_t tBytes)
{
    unsigned char* pucData = static_cast<unsigned char*>(pvData);
    for (std::size_t i = 0; i + sizeof(T) <= tBytes; i += sizeof(T))
    {
        T tVal;  // the data need not be aligned
        std::memcpy(&tVal, pucData + i, sizeof(T));
        tVal = Util_SwapByte::DoIt(tVal);
        std::memcpy(pucData + i, &tVal, sizeof(T));
    }
}
}  // namespace

void CByteOrder::SwapTwo(void* pvData, std::size_t tBytes) const
{
    if (m_bSwapByte) SwapUnits<unsigned short>(pvData, tBytes);
}

void CByteOrder::SwapFour(void* pvData, std::size_t tBytes) const
{
    if (m_bSwapByte) SwapUnits<unsigned int>(pvData, tBytes);
}

void CByteOrder::Swap(void* pvData, std::size_t tBytes, int iMode) const
{
    const int iUnit = CDataMode::GetBytes(static_cast<short>(iMode));
    if (iUnit == 2) SwapTwo(pvData, tBytes);
    if (iUnit == 4) SwapFour(pvData, tBytes);
}
