#include "server/Data/RemoteData.h"

#include <cstring>

bool CRemoteData::SetOptSize(std::uint32_t uiBytes)
{
    if (!Allocate(uiBytes)) return false;
    if (uiBytes > 0) std::memset(m_pData.get(), 0, uiBytes);
    return true;
}

bool CRemoteData::Allocate(std::uint32_t uiBytes)
{
    m_uiOptSize = 0;
    if (uiBytes > m_tCapacity)
    {
        m_pData.reset();
        m_tCapacity = 0;
        m_pData.reset(static_cast<std::byte*>(std::malloc(uiBytes)));
        if (!m_pData) return false;
        m_tCapacity = uiBytes;
    }
    m_uiOptSize = uiBytes;
    return true;
}
