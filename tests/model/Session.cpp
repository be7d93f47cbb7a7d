#include "tests/model/Session.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

bool CSession::Run()
{
    m_bCutResets = m_r.Chance(50);
    m_bCutInJob = m_r.Chance(6);
    if (m_r.Chance(12)) m_rClient.CutAfter(std::size_t(m_r.Magnitude(1, 300000)), m_bCutResets);
    bool bGoesOn = m_rClient.IsConnected() ? mGreet() : mWrong("no connection");
    for (int i = m_r.Magnitude(4, 150); bGoesOn && i > 0 && !m_r.IsOver(); --i) bGoesOn = mStep();
    if (bGoesOn) mLeave();
    if (m_rClient.IsCut()) m_rTally.Note(eCut);
    return m_strError.empty();
}

bool CSession::mGreet()
{
    if (m_r.Chance(50) && !mSend({Msg::eByteOrder, {0xCDAB3412u}})) return false;
    if (!mSend({Msg::eServerProp, {}})) return false;
    Pending& rFirst = m_vPending.back();
    std::optional<Packet> aReply = m_rClient.Receive();
    if (!aReply) return mLost();
    m_aReply = std::move(*aReply);
    m_rConsole.Trim();  // from here on the server prints for this session alone
    if (!mCheckReply(rFirst)) return false;
    m_vPending.clear();
    return m_rModel.bBoxKnown || mSend({Msg::eWeightOpt});  // the box of another client
}

bool CSession::mStep()
{
    const Request aRequest = m_aGenerator.Next();
    if (IsJob(aRequest.uiType)) return mServeJob(aRequest);
    if (!mSend(aRequest)) return false;
    const bool bRefused = !m_vPending.back().aExpected.bDone;
    if (bRefused) m_aGenerator.Ask();  // nothing has changed
    const bool bWaits = bRefused || m_vPending.size() > 20 || !m_r.Chance(70);
    return !bWaits || mSettle();
}

bool CSession::mLeave()
{
    if (!mSettle()) return false;
    if (m_r.Chance(30)) return true;  // the connection just ends
    const std::uint32_t uiType = m_r.Pick({Msg::eQuit, Msg::eInvalid});
    if (!mSend({uiType}) || !mReceive()) return false;
    return m_rClient.IsCut() || m_rClient.IsClosedByPeer() || mWrong("the server does not hang up");
}

bool CSession::mSend(const Request& rRequest, std::span<float> fTarget)
{
    m_rClient.SetSwap(m_rModel.bSwap);
    Pending aPending = {rRequest, m_rModel.Serve(rRequest), fTarget};
    aPending.bSwap = m_rModel.bSwap;
    m_rTally.Note(eRequests);
    if (m_rTally.bTrace) std::puts(::ToText(rRequest).c_str());
    const bool bSent = m_rClient.Send(rRequest);
    aPending.uiSerial = m_rClient.GetLastSerial();
    m_vPending.push_back(std::move(aPending));
    return bSent || mLost();
}

/// Reads what the server owes.
bool CSession::mReceive()
{
    for (Pending& rPending : m_vPending)
    {
        if (rPending.aExpected.pKind == nullptr) continue;
        m_rClient.SetSwap(rPending.bSwap);
        std::optional<Packet> aReply = m_rClient.Receive();
        if (!aReply) return mLost();
        m_aReply = std::move(*aReply);
        if (!mCheckReply(rPending)) return false;
    }
    m_vPending.clear();
    return true;
}

bool CSession::mSettle()
{
    return mReceive() && mCheckConsole();
}

bool CSession::mCheckReply(Pending& rPending)
{
    Expected& rExpected = rPending.aExpected;
    if (m_rModel.ulMemory > 0 && IsJob(rPending.aRequest.uiType) && m_aReply.Field(5) == 1)
        rExpected.bDone = false;  // there may be too little memory
    const std::string strFault = mFindFault(rPending);
    if (!strFault.empty()) return mWrong(rPending, strFault);
    m_uiServerSerial = m_aReply.Field(1);
    if (!rExpected.bDone) m_rTally.Note(eRefused);
    if (!rExpected.bDone) m_strRefused += std::string("Error: ") + rExpected.pKind->pcName + ": \n";
    if (rPending.aRequest.uiType == Msg::eCompReply)
        std::copy_n(&m_aReply.auiFields[7], 8, m_rModel.auiSums.emplace().begin());
    if (rExpected.bDone && !rPending.fTarget.empty())
        std::memcpy(rPending.fTarget.data(), m_aReply.vuiData.data(),
                    rPending.fTarget.size_bytes());
    return true;
}

/// The first word that is not as expected, empty when there is none.
std::string CSession::mFindFault(const Pending& rPending) const
{
    const auto Differs = [](std::uint32_t uiGot, std::uint32_t uiExpected)
    { return " is " + std::to_string(uiGot) + ", not " + std::to_string(uiExpected); };
    const Expected& rExpected = rPending.aExpected;
    const bool bQuit = rExpected.pKind->uiReply == Msg::eQuit, bTarget = !rPending.fTarget.empty();
    const std::size_t tWords = bTarget ? rPending.fTarget.size() : rExpected.vuiData.size();
    std::vector<std::pair<int, std::uint32_t>> vFields = rExpected.vFields;
    vFields.insert(vFields.begin(), {{0, rExpected.pKind->uiReply},
                                     {1, m_uiServerSerial.value_or(m_aReply.Field(1) - 1) + 1},
                                     {2, 0},
                                     {3, 4 * std::uint32_t(rExpected.bDone ? tWords : 0)},
                                     {4, bQuit ? 0 : rPending.uiSerial},
                                     {5, rExpected.bDone ? 0 : 1}});
    for (int n = 6; bQuit && n < 16; ++n) vFields.emplace_back(n, 0);
    for (const auto& [n, uiWord] : vFields)
        if (m_aReply.Field(n) != uiWord)
            return "word " + std::to_string(n) + Differs(m_aReply.Field(n), uiWord);
    for (std::size_t k = 0; !bTarget && rExpected.bDone && k < tWords; ++k)
        if (m_aReply.vuiData[k] != rExpected.vuiData[k])
            return "data word " + std::to_string(k) +
                   Differs(m_aReply.vuiData[k], rExpected.vuiData[k]);
    if (rPending.aRequest.uiType == Msg::eCompReply && m_aReply.Field(6) > 600000)
        return "word 6" + Differs(m_aReply.Field(6), 0);
    return {};
}

/// A refusal is said in one line, by name; what is carried out makes no error.
bool CSession::mCheckConsole()
{
    if (m_rClient.IsCut()) return false;  // others may be served already
    const std::optional<std::string> strText = m_rConsole.Take();
    std::string strRefused = std::exchange(m_strRefused, {}), strSaid;
    if (!strText) return true;
    for (std::size_t t = 0; (t = strText->find("Error: ", t)) != std::string::npos; t += 7)
        strSaid += strText->substr(t, strText->find(": ", t + 7) + 2 - t) + '\n';
    return strSaid == strRefused || mWrong("errors\n" + strSaid + "not\n" + strRefused + *strText);
}

bool CSession::mWrong(const Pending& rPending, const std::string& strWhat)
{
    return mWrong(::ToText(rPending.aRequest) + ": " + strWhat + '\n' +
                  m_rConsole.Take().value_or(""));
}

bool CSession::mWrong(const std::string& strWhat)
{
    if (m_strError.empty()) m_strError = strWhat;
    return false;
}
