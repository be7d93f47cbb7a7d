#include "fuzz/Target.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "Util/Util_TcpServer.h"

void Broken(const char* pcFormat, ...)
{
    std::va_list aArgs;
    va_start(aArgs, pcFormat);
    std::fputs("Broken: ", stderr);
    std::vfprintf(stderr, pcFormat, aArgs);
    std::fputs("\n", stderr);
    va_end(aArgs);
    std::abort();
}

const char* TakeConsole()
{
    unsetenv("HOME");
    if (std::getenv("TALVEN_FUZZ_VERBOSE") != nullptr) return "";
    char acName[] = "/tmp/talven-fuzz-XXXXXX";
    const int iFile = mkstemp(acName);
    if (iFile == -1 || std::freopen(acName, "a", stdout) == nullptr) Broken("no file for output");
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    close(iFile);
    unlink(acName);
    return "/proc/self/fd/1";
}

int ConnectClient()
{
    std::array<int, 2> aiPair = {};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, aiPair.data()) != 0)
        Broken("no socket pair");
    Util_TcpServer::GetInstance()->TakeClient(aiPair[0]);
    return aiPair[1];
}

Bytes ServeBytes(std::span<const std::byte> aBytes, const std::function<void()>& fnServe,
                 std::size_t tEnough)
{
    const int iSocket = ConnectClient();
    std::atomic<bool> bSent = false;
    const auto Send = [&]
    {
        for (long lDone = 1; lDone > 0 && !aBytes.empty();
             aBytes = aBytes.subspan(static_cast<std::size_t>(lDone > 0 ? lDone : 0)))
            lDone = send(iSocket, aBytes.data(), aBytes.size(), MSG_NOSIGNAL);
        bSent = true;
        shutdown(iSocket, SHUT_WR);
    };
    Bytes vGot;
    const auto Receive = [&]
    {
        std::array<std::byte, 65536> aBuffer;
        for (long lDone = 1; lDone > 0 && (!bSent || vGot.size() < tEnough);)
        {
            lDone = recv(iSocket, aBuffer.data(), aBuffer.size(), 0);
            vGot.insert(vGot.end(), aBuffer.data(), aBuffer.data() + (lDone > 0 ? lDone : 0));
        }
        shutdown(iSocket, SHUT_RDWR);
    };
    std::thread aSender(Send), aReceiver(Receive);
    fnServe();
    aSender.join();
    aReceiver.join();
    close(iSocket);
    return vGot;
}
