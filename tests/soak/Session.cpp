#include "tests/soak/Session.h"

#include "tests/wire/Messages.h"

CSession::CSession(int iPort, CRandom aRandom, CConsole& rConsole, Tally& rTally)
    : m_aRandom(aRandom),
      m_rConsole(rConsole),
      m_rTally(rTally),
      m_aClient(iPort, m_aRandom.Chance(0.5f))
{
}

bool CSession::Run()
{
    if (!m_aClient.IsConnected()) return mWrong("no connection");
    m_bCutResets = m_aRandom.Chance(0.5f);
    m_bCutInJob = m_aRandom.Chance(0.06f);
    if (m_aRandom.Chance(0.12f))
        m_aClient.CutAfter(std::size_t(m_aRandom.Magnitude(1, 300000)), m_bCutResets);
    bool bGoesOn = mGreet() && (m_aRandom.Chance(0.15f) || mMakeAll());
    for (int i = m_aRandom.Int(2, 14); bGoesOn && i > 0; --i) bGoesOn = mStep();
    if (bGoesOn) mLeave();
    if (m_aClient.IsCut()) ++(m_bCutResets ? m_rTally.ulReset : m_rTally.ulClosed);
    return m_strError.empty();
}

bool CSession::mGreet()
{
    const bool bSent = m_aClient.Send(Msg::eByteOrder, {0x1234ABCDu});
    const Request aProperties = {Msg::eServerProp, {}, {}};
    if (!bSent || !mSend(aProperties)) return mLost("BYTEORDER");
    if (!mReply(aProperties, m_aClient.GetLastSerial(), true)) return false;
    if (m_aReply.Field(6) == 0 && m_aReply.Field(7) == 0) return mWrong("SERVERPROP: no memory");
    m_rConsole.Trim();  // from here on the server prints for this session alone
    return mServe({Msg::eWeightOpt, {}, {}});  // the box of another client
}

bool CSession::mStep()
{
    const int iStep = m_aRandom.Int(0, 99);
    if (iStep < 20) return mJob(false);
    if (iStep < 27) return mJob(true);
    if (iStep < 35) return mTransform();
    if (iStep < 43) return mCompare();
    if (iStep < 60) return mRefusal();
    if (iStep < 66) return mIgnored();
    if (iStep < 72) return mLook();
    if (iStep < 77) return mMakeAll();
    if (iStep < 79) return mSpoil();
    return mOption(m_aRandom.Chance(0.1f));
}

bool CSession::mLeave()
{
    if (m_aRandom.Chance(0.3f)) return true;  // the connection just ends
    const bool bQuit = m_aRandom.Chance(0.8f);
    if (!m_aClient.Send(bQuit ? Msg::eQuit : Msg::eInvalid)) return mLost("QUIT");
    const auto aReply = m_aClient.Receive();
    if (!aReply || !m_aClient.IsClosedByPeer()) return mLost("QUIT");
    return aReply->Type() == Msg::eQuit || mWrong("QUIT: reply of type %u", aReply->Type());
}

/// Words that nobody understands, or more data than ever comes; only this session may end of it.
bool CSession::mSpoil()
{
    Words vuiGarbage(std::size_t(m_aRandom.Int(1, 200)));
    for (std::uint32_t& rWord : vuiGarbage)  // never a size that the server could grant
        rWord = m_aRandom.Chance(0.7f) ? m_aRandom.Word() % 32 : m_aRandom.Word() | 0x80000000u;
    if (m_aRandom.Chance(0.3f)) m_aClient.SendHeader(m_aRandom.Word() % 30, {}, 0xffffffffu);
    m_aClient.SendBytes(vuiGarbage.data(), 4 * vuiGarbage.size() - m_aRandom.Word() % 4);
    m_aClient.CutAfter(0, m_bCutResets);
    ++m_rTally.ulGarbage;
    return false;
}
