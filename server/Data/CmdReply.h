#pragma once

#include <memory>

#include "server/Data/RemotePacket.h"

/// The reply to a command. One packet is used for all: fields that a reply does not write keep what
/// the former one left in them.
class CCmdReply
{
public:
    static CCmdReply* GetInstance();
    static void DeleteInstance() { m_pInstance.reset(); }

    /// CMDREPLY: field 4 = serial of the request, field 5 = 0 done, 1 refused or failed.
    void Create(const CRemotePacket& rRequest, bool bDone);
    /// COMPREPLY: fields 4 and 5 as above, then the sums of the comparison, which are 0 when it was
    /// refused or failed. See SetCompareSums().
    void CompReply(const CRemotePacket& rRequest, bool bDone);
    CRemotePacket& GetPacket() { return m_aRemotePacket; }

private:
    CCmdReply() = default;
    static std::unique_ptr<CCmdReply> m_pInstance;
    CRemotePacket m_aRemotePacket;
};
