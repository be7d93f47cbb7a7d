#pragma once

#include <cstddef>

/// Stateless functions over a socket descriptor. Interrupted system calls are repeated.
class Util_TcpSocket
{
public:
    static int CreateSocket();             ///< IPv4 stream socket, -1 on failure
    static void CloseSocket(int iSocket);  ///< any descriptor other than -1
    /// Waits until the socket can be read or has waited fSeconds (negative: for ever).
    /// \return false only when the wait itself fails; a wait that runs out counts as ready
    static bool CheckReadEvent(int iSocket, float fSeconds);
    static bool CheckWriteEvent(int iSocket, float fSeconds);
    static int GetPort(int iSocket);  ///< local port, 0 when unknown or none

    /// Move exactly tBytes; false when the peer closes or an error occurs before that.
    static bool RecvAll(int iSocket, void* pvBuffer, std::size_t tBytes);
    static bool SendAll(int iSocket, const void* pvBuffer, std::size_t tBytes);
    /// Sends two blocks as one stream, without a copy.
    static bool SendBoth(int iSocket, const void* pvFirst, std::size_t tFirst, const void* pvSecond,
                         std::size_t tSecond);
};
