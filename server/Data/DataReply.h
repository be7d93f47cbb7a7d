#pragma once

#include <span>
#include <string>
#include <vector>

#include "Util/Util_Singleton.h"
#include "server/Data/RemotePacket.h"

/// The reply that carries data: a projection, a slice, R-factors or the server's properties.
///
/// Field 4 = serial of the request. A request that cannot be served gets option size 0 and field 5
/// = 1; the operation returns false then and says why in rReason. Otherwise field 5 = 0.
class CDataReply : public Util_Singleton<CDataReply>
{
public:
    bool ProjGet(const CRemotePacket& rRequest, std::string& rReason);  ///< field 4 = projection
    bool VolGet(const CRemotePacket& rRequest, std::string& rReason);   ///< field 4 = slice
    /// Field 4 = iteration, signed 16 bits; two floats per selected projection.
    bool ReconStatGet(const CRemotePacket& rRequest, std::string& rReason);
    /// Fields 6, 7: low and high word of the bytes of device memory that jobs may use.
    bool ServerProp(const CRemotePacket& rRequest, std::string& rReason);
    /// Milliseconds since the last comparison was asked for and its sums, in fields 6 to 14.
    bool CompReply(const CRemotePacket& rRequest, std::string& rReason);
    /// The reply that has nothing to give. \return false
    bool GiveNothing(const CRemotePacket& rRequest);
    CRemotePacket& GetPacket() { return m_aRemotePacket; }

private:
    void mSetHeader(const CRemotePacket& rRequest);
    bool mLend(const CRemotePacket& rRequest, std::span<const float> aData, std::string& rReason);

    std::vector<float> m_vfRfactors;  // lent to the packet until it is sent
    CRemotePacket m_aRemotePacket;
};
