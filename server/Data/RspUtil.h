#pragma once

#include <cstdint>
#include <memory>

#include "Util/Util_Singleton.h"
#include "server/Data/RemotePacket.h"

/// Builds the packets of a response and numbers them from 0.
///
/// Unlike the session's own replies these packets own their data and may be kept and sent later.
/// Reading the last slice of the volume deletes the volume.
class CRspUtil : public Util_Singleton<CRspUtil>
{
public:
    std::uint32_t GetNextSerial() { return m_uiSerial++; }
    /// Replaces the packets by the response to a request; none when it has none.
    void CreateResponse(const CRemotePacket& rRequest);
    int GetNumPackets() const { return m_iNumPackets; }
    CRemotePacket* GetNthPacket(int n);  ///< null when there is no such packet
    void ClearNthPacket(int n);          ///< frees it, its number stays
    void ClearAll();

private:
    void mFill(const CRemotePacket& rRequest, CRemotePacket& rReply);

    std::unique_ptr<CRemotePacket> m_pPacket;  // a response is one packet
    int m_iNumPackets = 0;
    std::uint32_t m_uiSerial = 0;
};
