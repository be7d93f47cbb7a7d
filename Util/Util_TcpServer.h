#pragma once

#include <cstddef>
#include <string>

#include "Util/Util_Singleton.h"

/// The listening socket of the process and at most one accepted client. Main thread only.
class Util_TcpServer : public Util_Singleton<Util_TcpServer>
{
public:
    static void DeleteInstance();  ///< closes the client and the listening socket
    virtual ~Util_TcpServer();     ///< closes the client only

    /// Listens on iPort of strAddress (dotted IPv4; empty: all interfaces). Does nothing when a
    /// listening socket exists. \return false after one line that says what failed
    static bool CreateServer(int iPort, const std::string& strAddress = {});
    /// The same with a socket that listens already, Unix or IP, and is ours from then on.
    static bool TakeServer(int iSocket);
    static void CloseServer();
    static int GetPort();  ///< of the listening socket, 0 when there is none or it has no port
    void CloseClient();
    /// A client that neither sends nor takes anything for so long counts as lost (0: never); for
    /// the clients that connect from now on.
    void SetIdleTimeout(float fSeconds) { m_fIdleTimeout = fSeconds; }

    /// 1: a client is connected, now or already; 0: nothing happened, or a lack of descriptors or
    /// memory that may pass, see GetShortage(); -1: accept failed. After a failure it has paused:
    /// who tries again at once does not keep a core busy.
    int ConnectClient(float fSeconds);
    /// errno of the last ConnectClient() that gave 0 for want of something, else 0.
    int GetShortage() const { return m_iShortage; }
    /// Serves a peer that is connected already: takes the stream socket over and closes the former
    /// client.
    void TakeClient(int iSocket);
    bool CanRecvNow(float fSeconds);
    bool CanSendNow(float fSeconds);
    bool DoRecv(void* pvBuffer, std::size_t tBytes);  ///< all of it or false
    bool DoSend(const void* pvBuffer, std::size_t tBytes);
    bool DoSend(const void* pvFirst, std::size_t tFirst, const void* pvSecond, std::size_t tSecond);

private:
    static int m_iServerSock;
    int m_iClientSock = -1;
    int m_iShortage = 0;
    float m_fIdleTimeout = 0.0f;
};
