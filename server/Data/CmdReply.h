#pragma once

#include "Util/Util_Singleton.h"
#include "server/Data/RemotePacket.h"

/// The reply to a command. One packet is used for all: fields that a reply does not write keep what
/// the former one left in them.
class CCmdReply : public Util_Singleton<CCmdReply>
{
public:
    /// CMDREPLY: field 4 = serial of the request, field 5 = 0 done, 1 refused or failed.
    void Create(const CRemotePacket& rRequest, bool bDone);
    /// COMPREPLY: fields 4 and 5 as above, then the sums of the comparison, which are 0 when it was
    /// refused or failed. See SetCompareSums().
    void CompReply(const CRemotePacket& rRequest, bool bDone);
    CRemotePacket& GetPacket() { return m_aRemotePacket; }

private:
    CRemotePacket m_aRemotePacket;
};
