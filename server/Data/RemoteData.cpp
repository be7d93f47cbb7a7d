#include "server/Data/RemoteData.h"

#include <cstring>
#include <new>

bool CRemoteData::SetOptSize(std::uint32_t uiBytes)
{
    if (!Reserve(uiBytes)) return false;
    if (uiBytes > 0) std::memset(m_pBuffer.get(), 0, uiBytes);
    return true;
}

bool CRemoteData::Reserve(std::uint32_t uiBytes)
{
    m_pBorrowed = nullptr;
    if (uiBytes > m_uiCapacity)
    {
        m_pBuffer.reset();
        m_pBuffer.reset(new (std::nothrow) std::byte[uiBytes]);
        m_uiCapacity = m_pBuffer ? uiBytes : 0;
    }
    m_uiOptSize = uiBytes <= m_uiCapacity ? uiBytes : 0;
    return m_uiOptSize == uiBytes;
}

void CRemoteData::Borrow(const void* pvData, std::uint32_t uiBytes)
{
    m_pBorrowed = static_cast<const std::byte*>(pvData);
    m_uiOptSize = uiBytes;
}
