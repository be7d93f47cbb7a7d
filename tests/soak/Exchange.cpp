#include <algorithm>
#include <bit>
#include <cstdarg>
#include <cstdio>

#include "tests/soak/Session.h"
#include "tests/wire/Messages.h"
#include "tests/wire/ServerProcess.h"

namespace
{
/// The name in error lines and the kind of reply.
struct Kind
{
    std::uint32_t uiType;
    const char* pcName;
    std::uint32_t uiReply = Msg::eCmdReply;
};
constexpr Kind g_aKinds[] = {{Msg::eProjGet, "PROJGET", Msg::eDataReply},
                             {Msg::eProjSet, "PROJSET"},
                             {Msg::eProjSize, "PROJSIZE"},
                             {Msg::eReconstruct, "RECONSTRUCT"},
                             {Msg::eReconStatGet, "RECONSTATGET", Msg::eDataReply},
                             {Msg::eReproject, "REPROJECT"},
                             {Msg::eServerProp, "SERVERPROP", Msg::eDataReply},
                             {Msg::eVolGet, "VOLGET", Msg::eDataReply},
                             {Msg::eVolSet, "VOLSET"},
                             {Msg::eVolSize, "VOLSIZE"},
                             {Msg::eSetOp, "SETOP"},
                             {Msg::eReconOpt, "RECONOPT"},
                             {Msg::eMProjSet, "MPROJSET"},
                             {Msg::eMProjSize, "MPROJSIZE"},
                             {Msg::eTransform, "TRANSFORM"},
                             {Msg::eTransforml, "TRANSFORML"},
                             {Msg::eCompare, "COMPARE", Msg::eCompReply},
                             {Msg::eComparel, "COMPAREL", Msg::eCompReply},
                             {Msg::eCompReply, "COMPREPLY", Msg::eDataReply},
                             {Msg::eWeightOpt, "WEIGHTOPT"},
                             {Msg::eSmoothOpt, "SMOOTHOPT"}};

const Kind& KindOf(const Request& rRequest)
{
    return *std::ranges::find(g_aKinds, rRequest.uiType, &Kind::uiType);
}
}  // namespace

bool CSession::mServe(const Request& rRequest, bool bDone)
{
    return mSend(rRequest) && mReply(rRequest, m_aClient.GetLastSerial(), bDone) &&
           mCheckConsole(rRequest, bDone);
}

/// Requests that are carried out, all sent before the first reply is read.
bool CSession::mServeAll(const std::vector<Request>& rRequests)
{
    std::uint32_t uiSerial = m_aClient.GetLastSerial();
    for (const Request& rRequest : rRequests)
        if (!mSend(rRequest)) return false;
    for (const Request& rRequest : rRequests)
        if (!mReply(rRequest, ++uiSerial, true)) return false;
    return rRequests.empty() || mCheckConsole(rRequests.back(), true);
}

bool CSession::mSend(const Request& rRequest)
{
    ++m_rTally.ulRequests;
    return m_aClient.Send(rRequest.uiType, rRequest.vuiFields, rRequest.vuiData) ||
           mLost(KindOf(rRequest).pcName);
}

bool CSession::mReply(const Request& rRequest, std::uint32_t uiSerial, bool bDone)
{
    std::optional<Packet> aReply = m_aClient.Receive();
    if (!aReply) return mLost(KindOf(rRequest).pcName);
    m_aReply = std::move(*aReply);
    return mCheckReply(rRequest, uiSerial, bDone);
}

bool CSession::mCheckReply(const Request& rRequest, std::uint32_t uiSerial, bool bDone)
{
    const Kind& rKind = KindOf(rRequest);
    if (m_aReply.Type() != rKind.uiReply || m_aReply.Parent() != uiSerial)
        return mWrong("%s %u: reply of type %u to %u", rKind.pcName, uiSerial, m_aReply.Type(),
                      m_aReply.Parent());
    if (m_uiServerSerial && m_aReply.Serial() != *m_uiServerSerial + 1)
        return mWrong("%s: reply %u follows %u", rKind.pcName, m_aReply.Serial(),
                      *m_uiServerSerial);
    m_uiServerSerial = m_aReply.Serial();
    if (m_aReply.Field(5) != (bDone ? 0 : 1))
        return mWrong("%s: word 5 is %u", rKind.pcName, m_aReply.Field(5));
    if (m_aReply.OptSize() != 0 && (!bDone || rKind.uiReply != Msg::eDataReply))
        return mWrong("%s: %u bytes of data", rKind.pcName, m_aReply.OptSize());
    return true;
}

/// A refusal is said in one line, by name; what is carried out makes no error.
bool CSession::mCheckConsole(const Request& rRequest, bool bDone)
{
    if (m_aClient.IsCut()) return false;  // others may be served already
    const std::string strName = std::string("Error: ") + KindOf(rRequest).pcName + ": ";
    const std::string strText = m_rConsole.Take();
    const int iLines = CountIn(strText, "Error: "), iNamed = CountIn(strText, strName);
    if (iLines != (bDone ? 0 : 1) || iNamed != iLines)
        return mWrong("%s: %d error lines: %s", KindOf(rRequest).pcName, iLines, strText.c_str());
    if (!bDone) m_rTally.Note(eRefused);
    return true;
}

/// An image or other floats, bit by bit.
bool CSession::mGet(std::uint32_t uiType, int iIndex, std::span<const float> fExpected)
{
    const Request aRequest = {uiType, {static_cast<std::uint32_t>(iIndex)}, {}};
    if (!mServe(aRequest)) return false;
    const auto SameBits = [](std::uint32_t uiBits, float fValue)
    { return uiBits == std::bit_cast<std::uint32_t>(fValue); };
    return std::ranges::equal(m_aReply.vuiData, fExpected, SameBits) ||
           mWrong("%s %d: %zu values, not the %zu that were there", KindOf(aRequest).pcName, iIndex,
                  m_aReply.vuiData.size(), fExpected.size());
}

bool CSession::mWrong(const char* pcFormat, ...)
{
    char acText[600];
    va_list aArguments;
    va_start(aArguments, pcFormat);
    std::vsnprintf(acText, sizeof acText, pcFormat, aArguments);
    va_end(aArguments);
    m_strError = acText;
    return false;
}

bool CSession::mLost(const char* pcWhat)
{
    return m_aClient.IsCut() ? false : mWrong("%s: no reply, or not in time", pcWhat);
}
