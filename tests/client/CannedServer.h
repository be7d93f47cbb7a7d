#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "talven/Packet.h"

namespace talven::test
{

/// What a real server never does: reads one request after the other and answers each with the
/// bytes given, whatever it asks for; then it waits until the client leaves, or leaves itself.
class CCannedServer
{
public:
    CCannedServer(const std::vector<std::string>& rReplies, bool bLeave)
    {
        sockaddr_in aAddress{};
        aAddress.sin_family = AF_INET;
        aAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t iBytes = sizeof(aAddress);
        auto* pAddress = reinterpret_cast<sockaddr*>(&aAddress);
        if (bind(m_iListening, pAddress, iBytes) == 0 && listen(m_iListening, 1) == 0 &&
            getsockname(m_iListening, pAddress, &iBytes) == 0)
            m_usPort = ntohs(aAddress.sin_port);
        m_aThread = std::thread([this, rReplies, bLeave] { mServe(rReplies, bLeave); });
    }
    ~CCannedServer()
    {
        shutdown(m_iListening, SHUT_RDWR);
        m_aThread.join();
        close(m_iListening);
    }
    CCannedServer(const CCannedServer&) = delete;
    CCannedServer& operator=(const CCannedServer&) = delete;
    std::uint16_t GetPort() const { return m_usPort; }

private:
    void mServe(const std::vector<std::string>& rReplies, bool bLeave) const
    {
        const int iClient = accept(m_iListening, nullptr, nullptr);
        PacketHeader aHeader;
        const auto Read = [iClient](void* pvTo, std::size_t tBytes)
        { return tBytes == 0 || recv(iClient, pvTo, tBytes, MSG_WAITALL) == ssize_t(tBytes); };
        for (const std::string& rReply : rReplies)
        {
            if (!Read(&aHeader, sizeof(aHeader))) break;
            std::string strData(aHeader.GetDataBytes(), '\0');
            if (!Read(strData.data(), strData.size())) break;
            send(iClient, rReply.data(), rReply.size(), MSG_NOSIGNAL);
        }
        while (!bLeave && Read(&aHeader, 1)) continue;
        close(iClient);
    }

    int m_iListening = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::uint16_t m_usPort = 0;
    std::thread m_aThread;
};

}  // namespace talven::test
