#include "fuzz/ReplyReader.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "Util/Util_SwapByte.h"
#include "fuzz/Console.h"

namespace
{
bool IsReplyType(std::uint32_t uiType)
{
    constexpr std::uint32_t uiCmdReply = 1, uiDataReply = 3, uiQuit = 8, uiCompReply = 24;
    return uiType == uiCmdReply || uiType == uiDataReply || uiType == uiQuit ||
           uiType == uiCompReply;
}
}  // namespace

void CReplyReader::Take(std::span<const std::byte> aBytes)
{
    while (!aBytes.empty())
    {
        const bool bData = m_tData > 0;
        const std::size_t tWanted = bData ? m_tData : m_aHeader.size() - m_tHeader;
        const std::size_t tStep = std::min(tWanted, aBytes.size());
        if (bData)
            m_tData -= tStep;
        else
        {
            std::memcpy(m_aHeader.data() + m_tHeader, aBytes.data(), tStep);
            m_tHeader += tStep;
            if (m_tHeader == m_aHeader.size()) mTakeHeader();
        }
        aBytes = aBytes.subspan(tStep);
    }
}

void CReplyReader::mTakeHeader()
{
    Reply aReply;
    std::memcpy(aReply.auiFields.data(), m_aHeader.data(), m_aHeader.size());
    aReply.bSwapped = !IsReplyType(aReply.auiFields[0]);
    if (aReply.bSwapped)
        for (std::uint32_t& rField : aReply.auiFields) rField = Util_SwapByte::DoIt(rField);
    if (!IsReplyType(aReply.auiFields[0]))
        Broken("reply %zu has type %u", m_vReplies.size(), aReply.auiFields[0]);
    m_vReplies.push_back(aReply);
    m_tHeader = 0;
    m_tData = aReply.auiFields[3];
}

std::vector<Reply> CReplyReader::Finish()
{
    if (m_tHeader != 0 || m_tData != 0)
        Broken("the stream ends within reply %zu, %zu bytes of data are missing", m_vReplies.size(),
               m_tData);
    return std::move(m_vReplies);
}
