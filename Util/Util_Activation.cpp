#include "Util/Util_Activation.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

namespace
{
constexpr int g_iFirst = 3;

/// A positive number of the environment, 0 when it is none.
int GetNumber(const char* pcName)
{
    const char* pcText = std::getenv(pcName);
    if (pcText == nullptr) return 0;
    int iValue = 0;
    const char* pcEnd = pcText + std::strlen(pcText);
    const auto [pcStop, eError] = std::from_chars(pcText, pcEnd, iValue);
    return eError == std::errc() && pcStop == pcEnd && iValue > 0 ? iValue : 0;
}

int GetOption(int iSocket, int iOption)
{
    int iValue = -1;
    socklen_t tSize = sizeof iValue;
    return getsockopt(iSocket, SOL_SOCKET, iOption, &iValue, &tSize) == 0 ? iValue : -1;
}
}  // namespace

int Util_Activation::Take()
{
    const int iCount = GetNumber("LISTEN_FDS");
    if (iCount == 0 || GetNumber("LISTEN_PID") != getpid()) return -1;
    for (const char* pcName : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"}) unsetenv(pcName);
    for (int i = 0; i < iCount && fcntl(g_iFirst + i, F_SETFD, FD_CLOEXEC) == 0; ++i) continue;
    return g_iFirst;
}

bool Util_Activation::IsListening(int iSocket)
{
    const int iDomain = GetOption(iSocket, SO_DOMAIN);
    return (iDomain == AF_UNIX || iDomain == AF_INET || iDomain == AF_INET6) &&
           GetOption(iSocket, SO_TYPE) == SOCK_STREAM && GetOption(iSocket, SO_ACCEPTCONN) == 1;
}
