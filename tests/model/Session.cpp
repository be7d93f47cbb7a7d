#include "tests/model/Session.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>

bool CSession::Run()
{
    m_bCutResets = m_r.Chance(50);
    m_bCutInJob = m_r.Chance(6);
    if (m_r.Chance(12)) m_rClient.CutAfter(std::size_t(m_r.Magnitude(1, 300000)), m_bCutResets);
    bool bGoesOn = m_rClient.IsConnected() ? mGreet() : mWrong("no connection");
    for (int i = m_r.Magnitude(4, 150); bGoesOn && i > 0 && !m_r.IsOver(); --i) bGoesOn = mStep();
    if (bGoesOn) mLeave();
    return m_strError.empty();
}

bool CSession::mGreet()
{
    if (m_r.Chance(50) && !mSend({Msg::eByteOrder, {0xCDAB3412u}})) return false;
    if (!mSend({Msg::eServerProp}) || !mReceive()) return false;
    // From here on the server prints for this session alone.
    if (!m_aOutput.empty()) std::filesystem::resize_file(m_aOutput, 0);
    return m_rModel.bBoxKnown || mSend({Msg::eWeightOpt});  // the box of another client
}

bool CSession::mStep()
{
    const Request aRequest = m_aGenerator.Next();
    if (IsJob(aRequest.uiType)) return mServeJob(aRequest);
    if (!mSend(aRequest)) return false;
    const bool bRefused = !m_vPending.back().aExpected.bDone;
    if (bRefused) m_aGenerator.Ask();  // nothing has changed
    return (!bRefused && m_r.Chance(70)) || mSettle();
}

bool CSession::mLeave()
{
    if (!mSettle()) return false;
    if (m_r.Chance(30)) return true;  // the connection just ends
    const std::uint32_t uiType = m_r.Pick({Msg::eQuit, Msg::eInvalid});
    if (!mSend({uiType}) || !mReceive()) return false;
    return m_rClient.IsCut() || m_rClient.IsClosedByPeer() || mWrong("the server does not hang up");
}

/// \param fTarget  see Pending
bool CSession::mSend(const Request& rRequest, std::span<float> fTarget)
{
    // What is not read yet has the order of now.
    const bool bWaits = m_vPending.size() > 20 || rRequest.uiType == Msg::eByteOrder;
    if (bWaits && !mReceive()) return false;
    m_rClient.SetSwap(m_rModel.bSwap);
    Pending aPending = {rRequest, m_rModel.Serve(rRequest), fTarget};
    ++m_rCounts.lRequests;
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
        std::optional<Packet> aReply = m_rClient.Receive();
        if (!aReply) return mLost();
        m_aReply = std::move(*aReply);
        if (!mCheckReply(rPending)) return false;
    }
    m_vPending.clear();
    return true;
}

bool CSession::mCheckReply(Pending& rPending)
{
    Expected& rExpected = rPending.aExpected;
    if (m_rModel.ulMemory > 0 && IsJob(rPending.aRequest.uiType) && m_aReply.Field(5) == 1)
        rExpected.bDone = false;  // there may be too little memory
    const std::string strFault = mFindFault(rPending);
    if (!strFault.empty())
        return mWrong(::ToText(rPending.aRequest) + ": " + strFault + '\n' + mTakeOutput());
    m_uiServerSerial = m_aReply.Field(1);
    if (rExpected.pKind->uiReply == Msg::eCompReply || rPending.aRequest.uiType == Msg::eCompReply)
        std::copy_n(&m_aReply.auiFields[7], 8, m_rModel.auiSums.emplace().begin());
    if (!rExpected.bDone)
    {
        m_strRefused += std::string("Error: ") + rExpected.pKind->pcName + ": \n";
        return true;
    }
    if (!rPending.fTarget.empty())
        std::memcpy(rPending.fTarget.data(), m_aReply.vuiData.data(),
                    rPending.fTarget.size_bytes());
    return true;
}

/// The first word that is not as expected, empty when there is none; the data begins at word 16.
std::string CSession::mFindFault(const Pending& rPending) const
{
    const Expected& rExpected = rPending.aExpected;
    const bool bQuit = rExpected.pKind->uiReply == Msg::eQuit, bTarget = !rPending.fTarget.empty();
    const std::size_t tWords = bTarget ? rPending.fTarget.size() : rExpected.vuiData.size();
    std::vector<std::pair<std::size_t, std::uint32_t>> vWords = {
        {0, rExpected.pKind->uiReply},
        {1, m_uiServerSerial.value_or(m_aReply.Field(1) - 1) + 1},
        {2, 0},
        {3, 4 * std::uint32_t(rExpected.bDone ? tWords : 0)},
        {4, bQuit ? 0 : rPending.uiSerial},
        {5, rExpected.bDone ? 0 : 1}};
    for (const auto& [n, uiWord] : rExpected.vFields) vWords.emplace_back(n, uiWord);
    for (std::size_t n = 6; bQuit && n < 16; ++n) vWords.emplace_back(n, 0);
    if (rPending.aRequest.uiType == Msg::eCompReply)  // milliseconds
        vWords.emplace_back(6, std::min(m_aReply.Field(6), 600000u));
    for (std::size_t k = 0; !bTarget && rExpected.bDone && k < tWords; ++k)
        vWords.emplace_back(16 + k, rExpected.vuiData[k]);
    for (const auto& [n, uiWord] : vWords)
    {
        const std::uint32_t uiGot = n < 16 ? m_aReply.auiFields[n] : m_aReply.vuiData[n - 16];
        if (uiGot != uiWord)
            return "word " + std::to_string(n) + " is " + std::to_string(uiGot) + ", not " +
                   std::to_string(uiWord);
    }
    return {};
}

/// What the server has printed since the last call.
std::string CSession::mTakeOutput()
{
    std::ifstream aFile(m_aOutput);
    aFile.seekg(m_lTaken);
    std::string strText{std::istreambuf_iterator<char>(aFile), {}};
    m_lTaken += std::streamoff(strText.size());
    return strText;
}

/// A refusal is said in one line, by name; what is carried out makes no error.
bool CSession::mCheckOutput()
{
    if (m_rClient.IsCut()) return false;  // others may be served already
    const std::string strText = mTakeOutput(), strRefused = std::exchange(m_strRefused, {});
    if (m_aOutput.empty()) return true;
    std::string strSaid;
    for (std::size_t t = 0; (t = strText.find("Error: ", t)) != std::string::npos; t += 7)
        strSaid += strText.substr(t, strText.find(": ", t + 7) + 2 - t) + '\n';
    return strSaid == strRefused || mWrong("errors\n" + strSaid + "not\n" + strRefused + strText);
}

bool CSession::mWrong(const std::string& strWhat)
{
    if (m_strError.empty()) m_strError = strWhat;
    return false;
}
