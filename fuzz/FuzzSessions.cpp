// Whole sessions: a fuzz input is what clients say to a server with two workers on the host.
//
// Every input meets a server as it is after the start: what outlives a client is thrown away at the
// end of an input, so that a crash needs no more than its own input.

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "Util/Util_Memory.h"
#include "fuzz/Console.h"
#include "fuzz/Peer.h"
#include "fuzz/ReplyReader.h"
#include "fuzz/SessionScript.h"
#include "gpulib/Device/Backend.h"
#include "server/Config/ConfigFile.h"
#include "server/Config/GpuConfig.h"
#include "server/Data/MsgConst.h"
#include "server/Data/Recon/CompareOp.h"
#include "server/Data/Recon/CompareSum.h"
#include "server/Data/Recon/ComparelOp.h"
#include "server/Data/Recon/WeightOpt.h"
#include "server/Thread/ClientMain.h"
#include "server/Thread/GpuThread.h"

namespace
{
/// The workers, which have to end before the process does.
class CWorkers
{
public:
    CWorkers()
    {
        SetBackend(MakeHostBackend("baseline", 2));
        CGpuConfig* pConfig = CGpuConfig::GetInstance();
        pConfig->SelectDevices(CConfigFile(), {64, 64});
        if (!CGpuThread::CreateThreads(pConfig->GetNumDevices(), pConfig->GetDeviceIDs()))
            Broken("no threads");
    }
    ~CWorkers()
    {
        CGpuThread::StopAll();
        CGpuThread::DeleteThreads();
    }
    CWorkers(const CWorkers&) = delete;
    CWorkers& operator=(const CWorkers&) = delete;
};

/// Every request has got its reply, in order, and all replies are numbered.
void CheckReplies(const std::vector<Reply>& rReplies, const ScriptClient& rClient)
{
    for (std::size_t i = 1; i < rReplies.size(); ++i)
        if (rReplies[i].auiFields[1] != rReplies[i - 1].auiFields[1] + 1)
            Broken("reply %zu has serial %u after %u", i, rReplies[i].auiFields[1],
                   rReplies[i - 1].auiFields[1]);
    const std::size_t tOwed = rClient.vOwed.size();
    if (rReplies.size() < tOwed + 1) Broken("%zu replies, %zu owed", rReplies.size(), tOwed + 1);
    for (std::size_t i = 0; i < tOwed; ++i)
    {
        const auto& rFields = rReplies[i].auiFields;
        const Owed& rOwed = rClient.vOwed[i];
        if (rFields[0] != rOwed.uiType || rFields[4] != rOwed.uiParent || rFields[5] > 1 ||
            rReplies[i].bSwapped != rOwed.bSwapped)
            Broken("reply %zu: type %u to %u, status %u, swapped %d; owed: %u to %u, %d", i,
                   rFields[0], rFields[4], rFields[5], rReplies[i].bSwapped, rOwed.uiType,
                   rOwed.uiParent, rOwed.bSwapped);
    }
    if (rReplies.back().auiFields[0] != CMsgConst::QUIT) Broken("no QUIT at the end");
    if (rClient.bComplete && rReplies.size() != tOwed + 1)
        Broken("%zu replies, %zu owed", rReplies.size(), tOwed + 1);
}

void Serve(const ScriptClient& rClient)
{
    static CPeer s_aPeer;
    CReplyReader aReader;
    s_aPeer.Connect(
        rClient.vBytes, [&](std::span<const std::byte> aBytes) { aReader.Take(aBytes); },
        rClient.tEnough);
    CClientMain aSession;
    while (aSession.ServePacket())
        ;
    s_aPeer.Finish();
    if (rClient.tEnough == SIZE_MAX) CheckReplies(aReader.Finish(), rClient);
}

void ForgetAll()
{
    CWeightOpt::DeleteInstance();
    CCompareOp::DeleteInstance();
    CComparelOp::DeleteInstance();
    CCompareSum::DeleteInstance();
}
}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    SilenceServer();
    Util_Memory::Assume(g_tScriptMemory);
    static const CWorkers s_aWorkers;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pucData, std::size_t tBytes)
{
    if (tBytes == 0) return 0;
    for (const ScriptClient& rClient : ReadScript({pucData, tBytes})) Serve(rClient);
    ForgetAll();
    return 0;
}
