#include "talven/Session.h"

#include <limits>

#include "talven/Text.h"

namespace talven
{
namespace
{

/// Uploads sent ahead of their replies, and images asked for ahead. Two hide the round trip; more
/// would only fill socket buffers.
constexpr std::size_t g_tWindow = 2;
constexpr std::uint32_t g_uiByteOrderTest = 0x1234ABCD;

template <class T>
std::span<const std::byte> Bytes(std::span<const T> pData)
{
    return std::as_bytes(pData);
}

}  // namespace

const char* GetMsgName(EMsg eMsg)
{
#define TALVEN_NAME(NAME) #NAME
    constexpr const char* apcNames[] = {TALVEN_MESSAGES(TALVEN_NAME)};
#undef TALVEN_NAME
    const auto tMsg = static_cast<std::size_t>(eMsg);
    return tMsg < std::size(apcNames) ? apcNames[tMsg] : "UNKNOWN";
}

double CalcRfactor(std::span<const RfactorSums> aSums)
{
    double dRaw = 0;
    double dDifference = 0;
    for (const RfactorSums& rSums : aSums)
    {
        dRaw += rSums.fRaw;
        dDifference += rSums.fDifference;
    }
    return dRaw > 0 ? dDifference / dRaw : std::numeric_limits<double>::quiet_NaN();
}

bool CSession::Open(const std::string& strHost, std::uint16_t usPort,
                    std::chrono::milliseconds tTimeout)
{
    mReset();
    return m_aConnection.Connect(strHost, usPort, tTimeout)
               ? mAnnounce()
               : Fail(m_strError, m_aConnection.GetError());
}

bool CSession::Take(int iSocket)
{
    mReset();
    m_aConnection.Take(iSocket);
    return mAnnounce();
}

void CSession::mReset()
{
    m_aPending.clear();
    m_uiSerial = 0;
    m_bServerSerialKnown = m_bSmoothing = false;
    m_bRefused = m_bLost = false;
}

bool CSession::mAnnounce()
{
    if (!mSend(EMsg::BYTEORDER, {g_uiByteOrderTest}, {})) return false;
    m_aPending.clear();  // the only message of ours that has no reply
    return true;
}

void CSession::Close()
{
    if (IsOpen() && !mSend(EMsg::QUIT, {}, {})) return;
    m_aPending.clear();
    m_aConnection.Close();
}

bool CSession::SetStackSize(int iX, int iY, std::span<const float> fAngles)
{
    std::vector<float> vfPairs;  // angle, defocus
    vfPairs.reserve(2 * fAngles.size());
    for (const float fAngle : fAngles)
    {
        vfPairs.push_back(fAngle);
        vfPairs.push_back(0.0f);
    }
    if (!mCommand(EMsg::PROJSIZE, {iX, iY, fAngles.size()}, {Bytes<float>(vfPairs)})) return false;
    m_vuiRanges.clear();
    for (int y = 0; y < iY; ++y)
        m_vuiRanges.insert(m_vuiRanges.end(), {0u, static_cast<std::uint32_t>(iX)});
    return true;
}

bool CSession::SetProjection(int iProj, std::span<const float> fPixels)
{
    // The column ranges are part of the message, though the server finds them itself before a
    // reconstruction.
    return mUpload(EMsg::PROJSET, iProj, {Bytes<std::uint32_t>(m_vuiRanges), Bytes(fPixels)});
}

bool CSession::SelectProjections(std::span<const std::uint32_t> uiIndices)
{
    return mCommand(EMsg::SETOP, {1, uiIndices.size()}, {Bytes(uiIndices)});
}

bool CSession::SetVolumeSize(int iX, int iY, int iZ)
{
    return mCommand(EMsg::VOLSIZE, {iX, iY, iZ});
}

bool CSession::SetSlice(int iZ, std::span<const float> fPixels)
{
    return mUpload(EMsg::VOLSET, iZ, {Bytes(fPixels)});
}

bool CSession::SetReconOptions(const ReconOptions& rOptions)
{
    if (rOptions.eMethod == EMethod::eBackProj) return mCommand(EMsg::RECONOPT, {0, 1, 1, 0, 1});
    return mCommand(EMsg::RECONOPT,
                    {rOptions.eMethod == EMethod::eSart ? 1 : 2, rOptions.iIterations,
                     rOptions.vuiSetSizes.size(), 0, 1},
                    {Bytes<std::uint32_t>(rOptions.vuiSetSizes), Bytes<float>(rOptions.vfRelax)});
}

bool CSession::SetWeightBox(const WeightBox* pBox)
{
    if (pBox == nullptr) return mCommand(EMsg::WEIGHTOPT, {0, 0});
    return mCommand(EMsg::WEIGHTOPT,
                    {1, 1, pBox->fCentreX, pBox->fCentreZ, pBox->fHalfX, pBox->fHalfZ});
}

bool CSession::SetSmoothing(int iInterval, const std::array<int, 3>& aiSizeXYZ,
                            std::span<const float> fKernel)
{
    m_bSmoothing = true;
    return mCommand(EMsg::SMOOTHOPT, {iInterval, aiSizeXYZ[0], aiSizeXYZ[1], aiSizeXYZ[2]},
                    {Bytes(fKernel)});
}

bool CSession::StopSmoothing()
{
    if (!m_bSmoothing) return true;
    const float fSame = 1;
    if (!SetSmoothing(0, {1, 1, 1}, std::span(&fSame, 1))) return false;
    m_bSmoothing = false;
    return true;
}

bool CSession::SetMeasuredSize(int iX, int iY, int iCount)
{
    return mCommand(EMsg::MPROJSIZE, {iX, iY, iCount});
}

bool CSession::SetMeasured(int iMeasured, std::span<const float> fPixels)
{
    return mUpload(EMsg::MPROJSET, iMeasured, {Bytes(fPixels)});
}

bool CSession::Transform(int iMeasured, int iProj, const Affine& rMatrix,
                         const IntensityScale& rScale)
{
    const EMsg eMsg = rScale.bLog ? EMsg::TRANSFORML : EMsg::TRANSFORM;
    return mSendAligning(eMsg, iMeasured, iProj, {}, rMatrix, rScale) && mRecvCommandReply();
}

bool CSession::Compare(int iMeasured, int iProj, const Affine& rMatrix,
                       const IntensityScale& rScale, CompareSums& rSums)
{
    // The rows to compare are part of the message, though the server compares all of them.
    const auto uiRows = static_cast<std::uint32_t>(m_vuiRanges.size() / 2);
    PacketHeader aReply;
    Pending aRequest;
    if (!mSendAligning(rScale.bLog ? EMsg::COMPAREL : EMsg::COMPARE, iMeasured, iProj,
                       {0, uiRows > 0 ? uiRows - 1 : 0}, rMatrix, rScale) ||
        !mRecvReply(EMsg::COMPREPLY, aReply, aRequest))
        return false;
    if (aReply.GetDataBytes() != 0) return mProtocolError("a compare reply with a data block");
    if (aReply.GetStatus() != 0) return mRefuse(aRequest);
    rSums = {aReply.GetFloat(15), aReply.GetFloat(14), aReply.GetFloat(11), aReply.GetFloat(7),
             aReply.GetFloat(12), aReply.GetFloat(9),  aReply.GetFloat(8),  aReply.GetFloat(13),
             aReply.GetFloat(10), aReply.auiFields[6]};
    return true;
}

/// The two indices, more words, the matrix and the scale; what of it does not fit into the header
/// is its data.
bool CSession::mSendAligning(EMsg eMsg, int iMeasured, int iProj, Fields aMore,
                             const Affine& rMatrix, const IntensityScale& rScale)
{
    PacketHeader aHeader;
    aHeader.auiFields[0] = static_cast<std::uint32_t>(eMsg);
    aHeader.auiFields[4] = static_cast<std::uint32_t>(iMeasured);
    aHeader.auiFields[5] = static_cast<std::uint32_t>(iProj);
    int iField = 6;
    for (const Word aWord : aMore) aHeader.auiFields[iField++] = aWord.uiBits;
    for (const float fValue : rMatrix) aHeader.SetFloat(iField++, fValue);

    const std::array<float, 6> afScale = rScale.GetValues();
    const std::span<const float> fScale = std::span(afScale).first(rScale.bLog ? 6 : 3);
    std::size_t tUsed = 0;
    while (tUsed < fScale.size() && iField < 16) aHeader.SetFloat(iField++, fScale[tUsed++]);
    return Flush() && mSendHeader(aHeader, {Bytes(fScale.subspan(tUsed))}, -1);
}

bool CSession::GetRfactors(int iIteration, std::vector<RfactorSums>& rSums)
{
    if (!Flush() || !mSend(EMsg::RECONSTATGET, {iIteration}, {})) return false;
    PacketHeader aReply;
    Pending aRequest;
    if (!mRecvReply(EMsg::DATAREPLY, aReply, aRequest)) return false;
    const std::uint32_t uiBytes = aReply.GetDataBytes();
    if (uiBytes == 0) return mRefuse(aRequest);
    // Eight bytes for each of at most 2^20 projections: more is no answer of this protocol.
    if (uiBytes % sizeof(RfactorSums) != 0 || uiBytes > (8u << 20))
        return mProtocolError("R-factors of " + std::to_string(uiBytes) + " bytes");
    rSums.resize(uiBytes / sizeof(RfactorSums));
    if (m_aConnection.Recv(std::as_writable_bytes(std::span(rSums)))) return true;
    return mLost(GetMsgName(EMsg::RECONSTATGET));
}

bool CSession::GetServerMemory(std::uint64_t& rBytes)
{
    return AskServerMemory() && TakeServerMemory(rBytes);
}

bool CSession::TakeServerMemory(std::uint64_t& rBytes)
{
    PacketHeader aReply;
    Pending aRequest;
    if (!mRecvReply(EMsg::DATAREPLY, aReply, aRequest)) return false;
    if (aReply.GetDataBytes() != 0) return mProtocolError("server properties with a data block");
    rBytes = (std::uint64_t(aReply.auiFields[7]) << 32) | aReply.auiFields[6];
    return true;
}

bool CSession::Flush()
{
    bool bDone = true;
    std::string strFirst;  // the first refusal is the cause, later ones follow from it
    while (!m_aPending.empty())
    {
        if (mRecvCommandReply()) continue;
        if (bDone) strFirst = m_strError;
        bDone = false;
    }
    if (bDone) return true;
    m_strError = strFirst;
    m_bRefused = IsOpen();
    return false;
}

bool CSession::mSend(EMsg eMsg, Fields aFields, Blocks aBlocks, int iIndex)
{
    PacketHeader aHeader;
    aHeader.auiFields[0] = static_cast<std::uint32_t>(eMsg);
    int iField = 4;
    for (const Word aWord : aFields) aHeader.auiFields[iField++] = aWord.uiBits;
    return mSendHeader(aHeader, aBlocks, iIndex);
}

bool CSession::mSendHeader(PacketHeader& rHeader, Blocks aBlocks, int iIndex)
{
    m_bRefused = false;
    const EMsg eMsg = rHeader.GetType();
    std::uint64_t ulBytes = 0;
    for (const auto& pBlock : aBlocks) ulBytes += pBlock.size();
    if (ulBytes > std::numeric_limits<std::uint32_t>::max())
    {
        m_strError = std::string(GetMsgName(eMsg)) + ": " + std::to_string(ulBytes) +
                     " bytes do not fit into one message";
        return false;
    }
    rHeader.auiFields[1] = ++m_uiSerial;
    rHeader.auiFields[3] = static_cast<std::uint32_t>(ulBytes);

    const std::span<const std::byte> pHeader = std::as_bytes(std::span(rHeader.auiFields));
    const std::span<const std::byte>* pBlocks = aBlocks.begin();
    const bool bSent = aBlocks.size() == 0 ? m_aConnection.Send({pHeader})
                       : aBlocks.size() == 1
                           ? m_aConnection.Send({pHeader, pBlocks[0]})
                           : m_aConnection.Send({pHeader, pBlocks[0], pBlocks[1]});
    if (!bSent) return mLost(GetMsgName(eMsg));
    m_aPending.push_back({eMsg, m_uiSerial, iIndex});
    return true;
}

bool CSession::mCommand(EMsg eMsg, Fields aFields, Blocks aBlocks)
{
    return Flush() && mSend(eMsg, aFields, aBlocks) && mRecvCommandReply();
}

bool CSession::mUpload(EMsg eMsg, int iIndex, Blocks aBlocks)
{
    while (m_aPending.size() >= g_tWindow)
        if (!mRecvCommandReply()) return false;
    return mSend(eMsg, {iIndex}, aBlocks, iIndex);
}

/// Without an end while the server may be working, on a job or for other clients.
bool CSession::mAwaitReply(EMsg eMsg)
{
    const bool bWorks =
        eMsg == EMsg::RECONSTRUCT || eMsg == EMsg::REPROJECT || !m_bServerSerialKnown;
    return m_aConnection.Await(bWorks ? std::chrono::milliseconds(-1) : m_aLimits.tReply);
}

/// The next packet, which must be of the type given and answer the oldest open request.
bool CSession::mRecvReply(EMsg eType, PacketHeader& rReply, Pending& rRequest)
{
    m_bRefused = false;
    rRequest = m_aPending.front();
    m_aPending.pop_front();
    if (!mAwaitReply(rRequest.eMsg) ||
        !m_aConnection.Recv(std::as_writable_bytes(std::span(rReply.auiFields))))
        return mLost(GetMsgName(rRequest.eMsg));

    m_bLost = rReply.GetType() == EMsg::QUIT;
    if (m_bLost) return mProtocolError("the server ended the session");
    if (rReply.GetType() != eType || rReply.GetParent() != rRequest.uiSerial)
        return mProtocolError(std::string(GetMsgName(rRequest.eMsg)) + " " +
                              std::to_string(rRequest.uiSerial) + " was answered by message type " +
                              std::to_string(rReply.auiFields[0]) + " for request " +
                              std::to_string(rReply.GetParent()));
    if (m_bServerSerialKnown && rReply.GetSerial() != m_uiServerSerial + 1)
        return mProtocolError("reply " + std::to_string(rReply.GetSerial()) + " follows reply " +
                              std::to_string(m_uiServerSerial));
    if (!m_bServerSerialKnown) m_aConnection.SetLimits(m_aLimits.tReply, m_aLimits.tMidway);
    m_bServerSerialKnown = true;
    m_uiServerSerial = rReply.GetSerial();
    return true;
}

bool CSession::mRecvCommandReply()
{
    PacketHeader aReply;
    Pending aRequest;
    if (!mRecvReply(EMsg::CMDREPLY, aReply, aRequest)) return false;
    if (aReply.GetDataBytes() != 0) return mProtocolError("a command reply with a data block");
    return aReply.GetStatus() == 0 || mRefuse(aRequest);
}

bool CSession::mRecvDataReply(std::span<std::byte> pData)
{
    PacketHeader aReply;
    Pending aRequest;
    if (!mRecvReply(EMsg::DATAREPLY, aReply, aRequest)) return false;
    if (aReply.GetDataBytes() == 0 && !pData.empty()) return mRefuse(aRequest);
    if (aReply.GetDataBytes() != pData.size())
        return mProtocolError(std::string(GetMsgName(aRequest.eMsg)) + " gave " +
                              std::to_string(aReply.GetDataBytes()) + " bytes, expected " +
                              std::to_string(pData.size()));
    return m_aConnection.Recv(pData) || mLost(GetMsgName(aRequest.eMsg));
}

bool CSession::mGetMany(EMsg eMsg, std::pair<int, int> aImages, std::size_t tPixels,
                        const Sink& rSink)
{
    if (!Flush()) return false;
    std::vector<float> vfPixels(tPixels);
    int iAsked = aImages.first;
    for (int i = iAsked; i < aImages.second; ++i)
    {
        for (; iAsked < aImages.second && m_aPending.size() < g_tWindow; ++iAsked)
            if (!mSend(eMsg, {iAsked}, {}, iAsked)) return false;
        if (!mRecvDataReply(std::as_writable_bytes(std::span(vfPixels))))
        {
            mDropReplies(vfPixels);
            return false;
        }
        if (!rSink(i, vfPixels))
        {
            m_aPending.clear();
            m_aConnection.Close();
            m_strError = std::string(GetMsgName(eMsg)) + ": ended by the receiver";
            return false;
        }
    }
    return true;
}

/// After a refusal: takes the answers to what was asked for ahead, so that the session can go on.
void CSession::mDropReplies(std::span<float> fScratch)
{
    if (!IsOpen()) return;
    const std::string strFirst = m_strError;
    while (!m_aPending.empty()) static_cast<void>(mRecvDataReply(std::as_writable_bytes(fScratch)));
    m_strError = strFirst;
    m_bRefused = IsOpen();
}

bool CSession::mRefuse(const Pending& rRequest)
{
    m_bRefused = true;
    m_strError = GetMsgName(rRequest.eMsg);
    if (rRequest.iIndex >= 0) m_strError.append(" ").append(std::to_string(rRequest.iIndex));
    m_strError += " was refused by the server";
    return false;
}

bool CSession::mLost(const std::string& strWhat)
{
    m_bLost = true;
    m_strError = strWhat + ": " + m_aConnection.GetError();
    m_aPending.clear();
    return false;
}

bool CSession::mProtocolError(const std::string& strWhat)
{
    m_strError = strWhat;
    m_aPending.clear();
    m_aConnection.Close();
    return false;
}

}  // namespace talven
