#pragma once

#include <array>
#include <bit>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <initializer_list>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "talven/Alignment.h"
#include "talven/Connection.h"
#include "talven/Packet.h"

namespace talven
{

enum class EMethod
{
    eSart,
    eEm,
    eBackProj
};

/// How the next reconstruction runs.
struct ReconOptions
{
    EMethod eMethod = EMethod::eSart;
    int iIterations = 1;
    std::vector<std::uint32_t> vuiSetSizes;  ///< projections of each subset, in list order
    std::vector<float> vfRelax;              ///< [iteration][subset]
};

/// A box in the X-Z plane, voxels, centred coordinates; for the path-length weights.
struct WeightBox
{
    float fCentreX = 0, fCentreZ = 0;
    float fHalfX = 0, fHalfZ = 0;
};

/// The two sums of one projection after one iteration, over all its pixels.
struct RfactorSums
{
    float fRaw;         ///< sum of |measured|
    float fDifference;  ///< sum of |measured - reprojected|
};
static_assert(sizeof(RfactorSums) == 8);

/// R-factor of an iteration: sum of the differences over sum of the measured values; NaN for none.
double CalcRfactor(std::span<const RfactorSums> aSums);

/// How long a server may do nothing before it counts as lost; negative: without an end.
///
/// Nothing ends while the server works on RECONSTRUCT and REPROJECT or, until its first reply,
/// serves the clients before us. Of what remains the slowest is a new stack or volume on a machine
/// without free memory, which may take tens of seconds: better a late word than a false alarm.
struct SessionLimits
{
    std::chrono::milliseconds tReply = std::chrono::seconds(300);  ///< to reply, to take a byte
    std::chrono::milliseconds tMidway =
        std::chrono::seconds(60);  ///< for the next byte of a reply that has begun
};

/// A client's side of one session with a talven-server.
///
/// Every operation returns false when it failed, and GetError() then says why, in one line. When
/// the server refused it, WasRefused() is true, nothing has changed on the server, and the session
/// goes on; every other failure closes the session. SetProjection(), SetSlice() and SetMeasured()
/// do not wait for the server's reply: a refusal shows in a later operation, at the latest in
/// Flush(), which every operation but those three calls first. Not thread-safe.
class CSession
{
public:
    /// Receives one image of an upload or download; false ends the transfer and the session.
    using Sink = std::function<bool(int iIndex, std::span<const float> fPixels)>;

    /// Connects and announces this machine's byte order. The server serves one client at a time:
    /// the connection succeeds while another client is served, and the first reply waits.
    [[nodiscard]] bool Open(const std::string& strHost, std::uint16_t usPort,
                            std::chrono::milliseconds tTimeout);
    /// The same over a stream socket that is connected already; owns it.
    [[nodiscard]] bool Take(int iSocket);
    /// Tells the server that this client leaves, and closes.
    void Close();
    bool IsOpen() const { return m_aConnection.IsOpen(); }
    void SetInterruptFd(int iFd) { m_aConnection.SetInterruptFd(iFd); }
    /// Before Open() or Take().
    void SetLimits(const SessionLimits& rLimits) { m_aLimits = rLimits; }

    /// PROJSIZE: a new stack of zeros, X x Y x vfAngles.size(), and the list of all projections.
    [[nodiscard]] bool SetStackSize(int iX, int iY, std::span<const float> fAngles);
    /// PROJSET: projection iProj, shape [y][x]. Pixels below -1e15 count as missing.
    [[nodiscard]] bool SetProjection(int iProj, std::span<const float> fPixels);
    /// SETOP: the projections that take part, in the order in which subsets are cut from them.
    [[nodiscard]] bool SelectProjections(std::span<const std::uint32_t> uiIndices);

    /// VOLSIZE. A volume of as many voxels as the session's last one keeps its contents, any other
    /// starts as zeros.
    [[nodiscard]] bool SetVolumeSize(int iX, int iY, int iZ);
    /// VOLSET: slice iZ (0 to 32767), shape [y][x].
    [[nodiscard]] bool SetSlice(int iZ, std::span<const float> fPixels);

    /// RECONOPT. Back projection takes no iterations, subsets or relaxation.
    [[nodiscard]] bool SetReconOptions(const ReconOptions& rOptions);
    /// WEIGHTOPT; null: no box. The server keeps the box of the client before: always send it.
    [[nodiscard]] bool SetWeightBox(const WeightBox* pBox);
    /// SMOOTHOPT: smooth after every iInterval iterations with a kernel [z][y][x].
    [[nodiscard]] bool SetSmoothing(int iInterval, const std::array<int, 3>& aiSizeXYZ,
                                    std::span<const float> fKernel);
    /// Takes SetSmoothing() back; a session starts without.
    [[nodiscard]] bool StopSmoothing();

    /// MPROJSIZE: a new stack of measured projections, zeros, X x Y x iCount. Their size need not
    /// be that of the stack.
    [[nodiscard]] bool SetMeasuredSize(int iX, int iY, int iCount);
    /// MPROJSET: measured projection iMeasured, shape [y][x].
    [[nodiscard]] bool SetMeasured(int iMeasured, std::span<const float> fPixels);
    /// TRANSFORM, TRANSFORML: projection iProj of the stack becomes the measured one, mapped and
    /// rescaled; pixels that fall outside it are far below -1e15 then.
    [[nodiscard]] bool Transform(int iMeasured, int iProj, const Affine& rMatrix,
                                 const IntensityScale& rScale);
    /// COMPARE, COMPAREL: sums over the measured projection, mapped and rescaled, and projection
    /// iProj of the stack, which stays as it is.
    [[nodiscard]] bool Compare(int iMeasured, int iProj, const Affine& rMatrix,
                               const IntensityScale& rScale, CompareSums& rSums);

    /// RECONSTRUCT and REPROJECT return when the server has finished.
    [[nodiscard]] bool Reconstruct() { return mCommand(EMsg::RECONSTRUCT, {}); }
    [[nodiscard]] bool Reproject() { return mCommand(EMsg::REPROJECT, {}); }

    /// VOLGET and PROJGET of images 0 to iCount - 1 in order, each of tPixels floats. The next
    /// image is on its way while the sink works on one.
    [[nodiscard]] bool GetSlices(int iCount, std::size_t tPixels, const Sink& rSink)
    {
        return mGetMany(EMsg::VOLGET, {0, iCount}, tPixels, rSink);
    }
    [[nodiscard]] bool GetProjections(int iCount, std::size_t tPixels, const Sink& rSink)
    {
        return mGetMany(EMsg::PROJGET, {0, iCount}, tPixels, rSink);
    }
    /// PROJGET of one image.
    [[nodiscard]] bool GetProjection(int iProj, std::size_t tPixels, const Sink& rSink)
    {
        return mGetMany(EMsg::PROJGET, {iProj, iProj + 1}, tPixels, rSink);
    }

    /// RECONSTATGET: the sums of one iteration, one entry per selected projection, in list order.
    [[nodiscard]] bool GetRfactors(int iIteration, std::vector<RfactorSums>& rSums);
    /// SERVERPROP: memory of all devices that jobs may use, bytes.
    [[nodiscard]] bool GetServerMemory(std::uint64_t& rBytes);
    /// The same in two steps: the reply waits until GetSocket() is readable.
    [[nodiscard]] bool AskServerMemory() { return Flush() && mSend(EMsg::SERVERPROP, {}, {}); }
    [[nodiscard]] bool TakeServerMemory(std::uint64_t& rBytes);
    int GetSocket() const { return m_aConnection.GetSocket(); }

    /// Waits for the replies of all uploads.
    [[nodiscard]] bool Flush();

    bool WasRefused() const { return m_bRefused; }
    /// Whether the connection broke or the server ended it; another time may do.
    bool WasLost() const { return m_bLost; }
    bool WasInterrupted() const { return m_aConnection.WasInterrupted(); }
    const std::string& GetError() const { return m_strError; }

private:
    struct Pending
    {
        EMsg eMsg;
        std::uint32_t uiSerial;
        int iIndex;  // of the image, -1: none
    };
    using Blocks = std::initializer_list<std::span<const std::byte>>;
    /// A word of a header: a number as it is, a float by its bits.
    struct Word
    {
        Word(int iValue) : uiBits(static_cast<std::uint32_t>(iValue)) {}
        Word(std::uint32_t uiValue) : uiBits(uiValue) {}
        Word(std::size_t tValue) : uiBits(static_cast<std::uint32_t>(tValue)) {}
        Word(float fValue) : uiBits(std::bit_cast<std::uint32_t>(fValue)) {}
        std::uint32_t uiBits;
    };
    using Fields = std::initializer_list<Word>;

    void mReset();
    bool mAnnounce();
    bool mSend(EMsg eMsg, Fields aFields, Blocks aBlocks, int iIndex = -1);
    bool mSendHeader(PacketHeader& rHeader, Blocks aBlocks, int iIndex);
    bool mCommand(EMsg eMsg, Fields aFields, Blocks aBlocks = {});
    bool mSendAligning(EMsg eMsg, int iMeasured, int iProj, Fields aMore, const Affine& rMatrix,
                       const IntensityScale& rScale);
    bool mUpload(EMsg eMsg, int iIndex, Blocks aBlocks);
    bool mAwaitReply(EMsg eMsg);
    bool mRecvReply(EMsg eType, PacketHeader& rReply, Pending& rRequest);
    bool mRecvCommandReply();
    bool mRecvDataReply(std::span<std::byte> pData);
    bool mGetMany(EMsg eMsg, std::pair<int, int> aImages, std::size_t tPixels, const Sink& rSink);
    void mDropReplies(std::span<float> fScratch);
    bool mRefuse(const Pending& rRequest);
    bool mLost(const std::string& strWhat);
    bool mProtocolError(const std::string& strWhat);

    CConnection m_aConnection;
    SessionLimits m_aLimits;
    std::deque<Pending> m_aPending;  // sent and not answered, oldest first
    std::uint32_t m_uiSerial = 0;
    std::uint32_t m_uiServerSerial = 0;
    bool m_bServerSerialKnown = false;
    bool m_bSmoothing = false;
    bool m_bRefused = false, m_bLost = false;
    std::vector<std::uint32_t> m_vuiRanges;  // first and one past the last column of every row
    std::string m_strError;
};

}  // namespace talven
