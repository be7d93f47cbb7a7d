// talven-transfer-bench: uploads and downloads of a private server beside a bare copy of the same
// bytes over a socket of the same kind.

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "talven/PrivateServer.h"

namespace
{
constexpr int g_iX = 1024, g_iY = 1024, g_iProjs = 61;
constexpr std::size_t g_tPixels = std::size_t{g_iX} * g_iY;
constexpr int g_iRepeats = 3;  // the least time counts

double Seconds()
{
    const auto aNow = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration<double>(aNow).count();
}

[[noreturn]] void Fail(const std::string& strWhat)
{
    std::fprintf(stderr, "talven-transfer-bench: %s\n", strWhat.c_str());
    std::exit(1);
}

void Demand(bool bDone, const talven::CSession& rSession)
{
    if (!bDone) Fail(rSession.GetError());
}

/// A connected pair of Unix sockets.
struct Pair
{
    int iSender = -1, iReceiver = -1;
    Pair()
    {
        int aiEnds[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, aiEnds) != 0) Fail("no sockets");
        iSender = aiEnds[0];
        iReceiver = aiEnds[1];
    }
    ~Pair()
    {
        close(iSender);
        close(iReceiver);
    }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;
};

/// Seconds to send iImages images from one buffer into memory that nobody has touched yet
/// (bFresh), as an upload does, or into one buffer, as a download does.
double CopyBare(int iImages, bool bFresh)
{
    const Pair aPair;
    const std::size_t tImage = g_tPixels * sizeof(float);
    const std::vector<char> vcSource(tImage, 1);
    const std::unique_ptr<char, decltype(&std::free)> pcDest(
        static_cast<char*>(std::calloc(bFresh ? static_cast<std::size_t>(iImages) : 1, tImage)),
        &std::free);
    const double dStart = Seconds();
    std::thread aSender(
        [&]
        {
            for (int i = 0; i < iImages; ++i)
                for (std::size_t t = 0; t < tImage;)
                {
                    const ssize_t tDone = send(aPair.iSender, vcSource.data() + t, tImage - t, 0);
                    if (tDone <= 0) Fail("send");
                    t += static_cast<std::size_t>(tDone);
                }
        });
    for (int i = 0; i < iImages; ++i)
        for (std::size_t t = 0; t < tImage;)
        {
            char* pcImage = pcDest.get() + (bFresh ? static_cast<std::size_t>(i) * tImage : 0);
            const ssize_t tDone = recv(aPair.iReceiver, pcImage + t, tImage - t, 0);
            if (tDone <= 0) Fail("recv");
            t += static_cast<std::size_t>(tDone);
        }
    aSender.join();
    return Seconds() - dStart;
}

void Print(const char* pcWhat, int iImages, double dOurs, double dBare)
{
    const double dGigabytes = 4e-9 * static_cast<double>(g_tPixels) * iImages;
    std::printf("%-10s %6.2f GB/s   bare copy %6.2f GB/s   %.2fx\n", pcWhat, dGigabytes / dOurs,
                dGigabytes / dBare, dBare / dOurs);
}
}  // namespace

int main()
{
    talven::CSession aSession;
    talven::CPrivateServer aServer;
    if (!aServer.Start({}, aSession)) Fail(aServer.GetError());

    std::vector<float> vfAngles(g_iProjs);
    for (int i = 0; i < g_iProjs; ++i) vfAngles[std::size_t(i)] = static_cast<float>(2 * i - 60);
    const std::vector<float> vfImage(g_tPixels, 1.0f);
    double dUpload = 1e30, dDownload = 1e30, dBareUp = 1e30, dBareDown = 1e30;
    for (int iRepeat = 0; iRepeat < g_iRepeats; ++iRepeat)
    {
        Demand(aSession.SetStackSize(g_iX, g_iY, vfAngles), aSession);
        double dStart = Seconds();
        for (int i = 0; i < g_iProjs; ++i) Demand(aSession.SetProjection(i, vfImage), aSession);
        Demand(aSession.Flush(), aSession);
        dUpload = std::min(dUpload, Seconds() - dStart);
        dBareUp = std::min(dBareUp, CopyBare(g_iProjs, true));

        dStart = Seconds();
        Demand(aSession.GetProjections(g_iProjs, g_tPixels,
                                       [](int, std::span<const float>) { return true; }),
               aSession);
        dDownload = std::min(dDownload, Seconds() - dStart);
        dBareDown = std::min(dBareDown, CopyBare(g_iProjs, false));
    }
    std::printf("%d images of %d x %d over a Unix socket\n\n", g_iProjs, g_iX, g_iY);
    Print("upload", g_iProjs, dUpload, dBareUp);
    Print("download", g_iProjs, dDownload, dBareDown);
    return 0;
}
