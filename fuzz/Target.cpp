#include "fuzz/Target.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "Util/Util_TcpServer.h"

void Expect(bool bTrue, const std::string& strWhat)
{
    if (bTrue) return;
    std::fprintf(stderr, "Not as expected: %s\n", strWhat.c_str());
    std::abort();
}

const char* TakeConsole()
{
    unsetenv("HOME");
    if (std::getenv("TALVEN_FUZZ_VERBOSE") != nullptr) return "";
    const int iFile = memfd_create("console", MFD_CLOEXEC);
    fcntl(iFile, F_SETFL, O_APPEND);
    Expect(dup2(iFile, STDOUT_FILENO) == STDOUT_FILENO, "a file for output");
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    close(iFile);
    return "/proc/self/fd/1";
}

int ConnectClient()
{
    std::array<int, 2> aiPair = {};
    Expect(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, aiPair.data()) == 0, "a socket pair");
    Util_TcpServer::GetInstance()->TakeClient(aiPair[0]);
    return aiPair[1];
}

Bytes ServeBytes(std::span<const std::byte> aBytes, const std::function<void()>& fnServe)
{
    const int iSocket = ConnectClient();
    const auto Send = [=]
    {
        std::size_t tDone = 0;
        for (long l = 1; l > 0 && tDone < aBytes.size(); tDone += static_cast<std::size_t>(l))
            l = std::max(0L, send(iSocket, &aBytes[tDone], aBytes.size() - tDone, MSG_NOSIGNAL));
        shutdown(iSocket, SHUT_WR);
    };
    Bytes vGot;
    const auto Receive = [&]
    {
        std::array<std::byte, 65536> aBuffer;
        for (long l = 0; (l = recv(iSocket, aBuffer.data(), aBuffer.size(), 0)) > 0;)
            vGot.insert(vGot.end(), aBuffer.data(), aBuffer.data() + l);
    };
    std::thread aSender(Send), aReceiver(Receive);
    fnServe();
    aSender.join();
    aReceiver.join();
    close(iSocket);
    return vGot;
}
