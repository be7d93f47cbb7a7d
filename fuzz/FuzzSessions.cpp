// Whole sessions with a server of two workers on the host and little memory.
//
// The first byte of an input says how the others are meant: an even one, they decide what the
// clients of the session model draw, one client after the other, and every reply is checked; an odd
// one, they are what one client sends, as they are.
//
// Every input meets a server as it is after the start: what outlives a client is thrown away at the
// end of an input, so that a crash needs no more than its own input.

#include <cstdlib>
#include <thread>

#include "Util/Util_Memory.h"
#include "fuzz/Target.h"
#include "gpulib/Device/Backend.h"
#include "server/Config/ConfigFile.h"
#include "server/Config/GpuConfig.h"
#include "server/Data/Recon/CompareOp.h"
#include "server/Data/Recon/CompareSum.h"
#include "server/Data/Recon/ComparelOp.h"
#include "server/Data/Recon/WeightOpt.h"
#include "server/Thread/ClientMain.h"
#include "server/Thread/GpuThread.h"
#include "tests/model/Session.h"

namespace
{
constexpr std::size_t g_tMemory = std::size_t{4} << 20;  // near, for jobs that are not small

const char* g_pcConsole = "";

void ServeClient()
{
    CClientMain aServer;
    while (aServer.ServePacket()) continue;
}

/// One client that the bytes drive; it runs on a thread of its own.
void RunSession(CChoices& rChoices, Model& rModel)
{
    static Counts aCounts;
    CRawClient aClient(CRawClient::Socket{ConnectClient()});
    CSession aSession(aClient, rChoices, rModel, aCounts, g_pcConsole);
    std::thread aPeer(
        [&]
        {
            const bool bDone = aSession.Run();
            Expect(bDone, aSession.GetError());
            aClient.Close();
        });
    ServeClient();
    aPeer.join();
    rModel.EndClient(aClient.IsCut());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    g_pcConsole = TakeConsole();
    Util_Memory::Assume(g_tMemory);
    SetBackend(MakeHostBackend("baseline", 2));
    CGpuConfig* pConfig = CGpuConfig::GetInstance();
    pConfig->SelectDevices(CConfigFile(), {64, 64});
    Expect(CGpuThread::CreateThreads(pConfig->GetNumDevices(), pConfig->GetDeviceIDs()), "threads");
    std::atexit(
        []
        {
            CGpuThread::StopAll();
            CGpuThread::DeleteThreads();
        });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pucData, std::size_t tBytes)
{
    if (tBytes == 0) return 0;
    const std::span<const std::uint8_t> ucBytes(pucData + 1, tBytes - 1);
    CChoices aChoices(ucBytes);
    Model aModel;
    aModel.ulMemory = g_tMemory;
    aModel.bBoxKnown = true;  // none
    aModel.auiSums.emplace().fill(0);
    if ((*pucData & 1) == 0)
        for (int i = 0; i < 4 && !aChoices.IsOver(); ++i) RunSession(aChoices, aModel);
    else
        ServeBytes(std::as_bytes(ucBytes), ServeClient);
    CWeightOpt::DeleteInstance();
    CCompareOp::DeleteInstance();
    CComparelOp::DeleteInstance();
    CCompareSum::DeleteInstance();
    return 0;
}
