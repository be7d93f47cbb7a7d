#include <cstdio>

#include "Util/Util_Activation.h"
#include "Util/Util_TcpServer.h"
#include "gpulib/Device/Backend.h"
#include "server/Config/GpuConfig.h"
#include "server/Thread/ClientMain.h"
#include "server/Thread/GpuThread.h"
#include "server/Thread/StopSignal.h"

namespace
{
enum EExitCode
{
    eNoDevice = -1,
    eNoServer = -2,
    eNoClient = -3
};

/// Listens where the settings say, or with the socket that was handed over.
bool CreateServer(const CGpuConfig& rConfig, int iHandedOver)
{
    return iHandedOver != -1
               ? Util_TcpServer::TakeServer(iHandedOver)
               : Util_TcpServer::CreateServer(rConfig.GetServerPort(), rConfig.GetBindAddress());
}
}  // namespace

int main()
{
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);  // lines arrive at once, also in a file
    const int iHandedOver = Util_Activation::Take();
    CStopSignal::Start();
    CGpuConfig* pConfig = CGpuConfig::GetInstance();
    pConfig->QueryDevice();
    if (pConfig->GetNumDevices() <= 0)
    {
        std::puts("Error: GPU devices are not found.");
        if (!GetBackend()) std::printf("Error: %s\n", pConfig->GetBackend().c_str());
        return eNoDevice;
    }
    if (!CreateServer(*pConfig, iHandedOver))
    {
        std::printf("Error: Unable to create server socket.");
        return eNoServer;
    }
    if (!CGpuThread::CreateThreads(pConfig->GetNumDevices(), pConfig->GetDeviceIDs()))
    {
        std::puts("Error: Unable to start a thread per device.");
        return eNoDevice;
    }
    CClientMain aClientMain;
    if (!aClientMain.ConnectClient())
    {
        CGpuThread::StopAll();
        CGpuThread::DeleteThreads();
        return eNoClient;
    }
    aClientMain.DoIt();
}
