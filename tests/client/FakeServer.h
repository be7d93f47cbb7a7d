#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <span>
#include <thread>
#include <utility>
#include <vector>

#include "talven/Alignment.h"
#include "talven/Packet.h"

namespace talven::test
{

/// What a client sent.
struct Message
{
    PacketHeader aHeader;
    std::vector<std::byte> vcData;

    std::vector<std::uint32_t> GetWords() const;
    std::vector<float> GetFloats() const;
};

/// How the server misbehaves.
struct Faults
{
    std::set<EMsg> aRefused;          ///< answered with "refused"
    EMsg eHangUpAt = EMsg::LOG;       ///< the connection ends instead of this answer
    EMsg eWrongParentAt = EMsg::LOG;  ///< answered as if to another request
    EMsg eSkipSerialAt = EMsg::LOG;   ///< a reply before this one seems to be lost
};

/// A server in a thread of the test that serves one client. It maps and compares images; its
/// "reconstruction" has the value 1000 z + i at pixel i of slice z; R-factors are (10, 10 /
/// (iteration + 1)).
class CFakeServer
{
public:
    explicit CFakeServer(Faults aFaults = {});
    ~CFakeServer();
    std::uint16_t GetPort() const { return m_usPort; }
    /// Everything received, after the client has left.
    std::vector<Message> WaitForMessages();

private:
    void mServe();
    bool mAnswer(const Message& rMessage);
    bool mReply(EMsg eType, const Message& rRequest, std::uint32_t uiStatus,
                std::span<const std::byte> pData, std::uint32_t uiField6 = 0);
    bool mReplySums(const Message& rRequest, std::uint32_t uiStatus, const CompareSums& rSums);
    void mJoin();

    Faults m_aFaults;
    int m_iListening = -1;
    std::atomic<int> m_iClient{-1};
    std::uint16_t m_usPort = 0;
    std::uint32_t m_uiSerial = 41;  // a server numbers its packets across clients
    std::map<std::uint32_t, std::vector<std::byte>> m_aProjs, m_aMeasured;
    std::uint32_t m_auiStack[3] = {}, m_auiVolume[3] = {}, m_auiMeasured[3] = {};
    std::vector<Message> m_aMessages;
    std::thread m_aThread;
};

}  // namespace talven::test
