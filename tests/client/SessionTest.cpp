// Sessions with the real server, and with one that breaks the protocol.

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <functional>

#include "Support.h"
#include "talven/Reconstruction.h"

namespace talven::test
{
namespace
{

using namespace std::chrono_literals;

TEST(ClientSession, ARefusalIsNamedAndTheSessionGoesOn)
{
    setenv("TALVEN_SERVER", TALVEN_SERVER_PROGRAM, 1);
    CMonitor aMonitor;
    CServerLink aLink;
    ASSERT_TRUE(aLink.Connect({}, aMonitor)) << aLink.GetError();
    CSession& rSession = aLink.GetSession();
    const auto Set = [&](int i) { return rSession.SetProjection(i, Floats(12)); };
    const auto Take = [](int, std::span<const float>) { return true; };
    CompareSums aSums{-1};
    std::vector<RfactorSums> aRfactors;
    ASSERT_TRUE(rSession.SetStackSize(4, 3, Floats(2)) && rSession.SetVolumeSize(4, 3, 2));
    const std::pair<std::string, std::function<bool()>> aCases[] = {
        {"PROJSET 8", [&] { return Set(8) && Set(9) && rSession.Flush(); }},
        {"COMPARE", [&] { return rSession.Compare(1, 0, g_aIdentity, {}, aSums); }},
        {"RECONSTATGET", [&] { return rSession.GetRfactors(9, aRfactors); }},
        {"VOLGET 2", [&] { return rSession.GetSlices(4, 12, Take); }}};
    for (const auto& [strName, Request] : aCases)
    {
        EXPECT_TRUE(!Request() && rSession.WasRefused());
        EXPECT_EQ(rSession.GetError(), strName + " was refused by the server");
        EXPECT_TRUE(aLink.Explain().starts_with(rSession.GetError() + ": ")) << aLink.Explain();
        std::uint64_t ulMemory = 0;
        EXPECT_TRUE(rSession.GetServerMemory(ulMemory)) << rSession.GetError();
        EXPECT_TRUE(ulMemory > 1 << 20 && ulMemory < 1ul << 50 && !rSession.WasRefused());
    }
    EXPECT_EQ(aSums.fCount, -1) << "sums of a refused comparison";
}

/// Opens a session with a server that sends these bytes, whatever it is asked for, and leaves; or
/// keeps silent when there are none. Its sockets stay until the tests end.
/// \param bLeaves  after that; else it is silent, too
bool OpenCanned(CSession& rSession, const std::string& strReplies, bool bLeaves = true)
{
    const int iListening = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in aAddress{};
    socklen_t iBytes = sizeof(aAddress);
    EXPECT_EQ(listen(iListening, 1), 0);
    getsockname(iListening, reinterpret_cast<sockaddr*>(&aAddress), &iBytes);
    if (!rSession.Open("127.0.0.1", ntohs(aAddress.sin_port), 5s)) return false;
    if (strReplies.empty()) return true;
    const int iClient = accept(iListening, nullptr, nullptr);
    return send(iClient, strReplies.data(), strReplies.size(), 0) == ssize_t(strReplies.size()) &&
           (!bLeaves || shutdown(iClient, SHUT_WR) == 0);
}

/// A header of an answer, and data.
std::string Reply(EMsg eType, std::uint32_t uiSerial, std::uint32_t uiParent, std::uint32_t uiBytes,
                  const Floats& rData = {})
{
    PacketHeader aHeader;
    aHeader.auiFields = {std::uint32_t(eType), uiSerial, 0, uiBytes, uiParent, 0, 5, 6};
    std::string strBytes(reinterpret_cast<const char*>(&aHeader), sizeof(aHeader));
    return strBytes.append(reinterpret_cast<const char*>(rData.data()), 4 * rData.size());
}

TEST(ClientSession, BrokenAnswersEndIt)
{
    const std::string strDone = Reply(EMsg::CMDREPLY, 41, 2, 0);  // to the first request
    const auto Data = [&](std::uint32_t uiBytes, const Floats& rData = {}, int iSerial = 42)
    { return strDone + Reply(EMsg::DATAREPLY, std::uint32_t(iSerial), 3, uiBytes, rData); };
    // To VOLSIZE; then to 0 memory, 1 slices of two floats, 2 R-factors, 3 compare.
    for (const auto& [strReplies, iRequest, strReason] :
         std::vector<std::tuple<std::string, int, std::string>>{
             {Reply(EMsg::CMDREPLY, 41, 3, 0), 0, "VOLSIZE 2 was answered by message type 1"},
             {Reply(EMsg::DATAREPLY, 41, 2, 0), 0, "VOLSIZE 2 was answered by message type 3"},
             {Reply(EMsg::CMDREPLY, 41, 2, 4, {1}), 0, "a command reply with a data block"},
             {Reply(EMsg::QUIT, 41, 2, 0), 0, "the server ended the session"},
             {strDone.substr(0, 40), 0, "VOLSIZE: connection lost: the server closed it"},
             {Data(0, {}, 43), 0, "reply 43 follows reply 41"},
             {Data(4, {1}), 0, "server properties with a data block"},
             {Data(12, {1, 2, 3}), 1, "VOLGET gave 12 bytes, expected 8"},
             {Data(8, {1}), 1, "VOLGET: connection lost"},
             {Data(12, {1, 2, 3}), 2, "R-factors of 12 bytes"},
             {Data(1u << 24), 2, "R-factors of 16777216 bytes"},
             {Data(16, {1}), 2, "RECONSTATGET: connection lost"},
             {strDone + Reply(EMsg::COMPREPLY, 42, 3, 4, {1}), 3, "a compare reply with a data"},
             {Data(0), 0, ""}})
    {
        CSession aSession;
        std::uint64_t ulMemory = 0;
        std::vector<RfactorSums> aRfactors;
        CompareSums aSums;
        ASSERT_TRUE(OpenCanned(aSession, strReplies)) << aSession.GetError();
        const bool bDone =
            aSession.SetVolumeSize(2, 1, 1) &&
            (iRequest == 0   ? aSession.GetServerMemory(ulMemory)
             : iRequest == 1 ? aSession.GetSlices(1, 2, [](int, auto) { return true; })
             : iRequest == 2 ? aSession.GetRfactors(0, aRfactors)
                             : aSession.Compare(0, 0, g_aIdentity, {}, aSums));
        EXPECT_EQ(bDone, strReason.empty()) << strReason;
        EXPECT_TRUE(aSession.GetError().starts_with(strReason)) << aSession.GetError() << strReason;
        EXPECT_TRUE(aSession.IsOpen() == bDone && !aSession.WasRefused()) << strReason;
        EXPECT_TRUE(ulMemory == 0 || ulMemory == (6ul << 32 | 5)) << ulMemory;
    }
}

TEST(ClientSession, WaitsEnd)
{
    const int iTimer = timerfd_create(CLOCK_MONOTONIC, 0);
    const itimerspec aSoon = {{}, {0, 50'000'000}};
    CSession aSession;
    std::uint64_t ulMemory = 0;
    aSession.SetInterruptFd(iTimer);
    ASSERT_TRUE(OpenCanned(aSession, "")) << "a server that is busy with somebody else";
    ASSERT_EQ(timerfd_settime(iTimer, 0, &aSoon, nullptr), 0);
    EXPECT_FALSE(aSession.GetServerMemory(ulMemory));
    EXPECT_TRUE(aSession.WasInterrupted()) << aSession.GetError();
    EXPECT_FALSE(OpenCanned(aSession, ""));
    EXPECT_EQ(aSession.GetError(), "interrupted") << "before it began";
    close(iTimer);
    aSession.SetInterruptFd(-1);
    EXPECT_FALSE(aSession.Open("no-such-host.invalid", 1, 5s));
    EXPECT_TRUE(aSession.GetError().starts_with("cannot find host no-such-host.invalid: "));
}

TEST(ClientSession, AServerThatStopsIsGivenUp)
{
    const std::string strFirst = Reply(EMsg::DATAREPLY, 1, 2, 0);
    const auto Take = [](int, std::span<const float>) { return true; };
    const Floats vfLarge(1 << 22);  // more than sockets hold
    for (int iCase = 0; iCase < 4; ++iCase)
    {
        CSession aSession;
        std::uint64_t ulMemory = 0;
        const int iTimer = timerfd_create(CLOCK_MONOTONIC, 0);
        const itimerspec aLater = {{}, {0, 500'000'000}};
        aSession.SetInterruptFd(iTimer);
        aSession.SetLimits({iCase == 2 ? 60s : 100ms, 200ms});
        const std::string strMidway = iCase == 2 ? Reply(EMsg::DATAREPLY, 2, 3, 12, {1, 2}) : "";
        ASSERT_TRUE(OpenCanned(aSession, strFirst + strMidway, false) &&
                    aSession.GetServerMemory(ulMemory));
        timerfd_settime(iTimer, 0, &aLater, nullptr);
        const bool bDone = iCase == 0   ? aSession.GetServerMemory(ulMemory)
                           : iCase == 1 ? aSession.SetSlice(0, vfLarge)
                           : iCase == 2 ? aSession.GetSlices(1, 3, Take)
                                        : aSession.Reconstruct();  // it may be working
        EXPECT_TRUE(!bDone && !aSession.IsOpen() && aSession.WasLost()) << iCase;
        close(iTimer);
        EXPECT_EQ(aSession.WasInterrupted(), iCase == 3) << aSession.GetError();
        if (iCase == 3) continue;
        EXPECT_TRUE(aSession.GetError().ends_with(iCase == 2 ? ": no answer for 0.2 s"
                                                             : ": no answer for 0.1 s"))
            << aSession.GetError();
    }
}

}  // namespace
}  // namespace talven::test
