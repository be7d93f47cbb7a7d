#pragma once

#include <string>

#include "tests/model/Console.h"
#include "tests/model/Generator.h"
#include "tests/model/Tally.h"
#include "tests/wire/RawClient.h"

/// One session of drawn requests with a server: the model knows every reply, the oracle every
/// result.
///
/// Steps return false when the session is over: the connection was cut on purpose, or something was
/// wrong, which GetError() tells.
class CSession
{
public:
    /// \param iLargest, dMostWork  see CGenerator
    CSession(CRawClient& rClient, CChoices& rChoices, Model& rModel, CConsole& rConsole,
             Tally& rTally, int iLargest, double dMostWork)
        : m_rClient(rClient),
          m_r(rChoices),
          m_rModel(rModel),
          m_rConsole(rConsole),
          m_rTally(rTally),
          m_aGenerator(rChoices, rModel, iLargest, dMostWork)
    {
    }
    /// \return false when something was wrong
    bool Run();
    const std::string& GetError() const { return m_strError; }

private:
    /// A request whose reply has not been read.
    struct Pending
    {
        Request aRequest;
        Expected aExpected;
        std::span<float> fTarget = {};  ///< takes the data of the reply, which nobody knows
        std::uint32_t uiSerial = 0;
        bool bSwap = false;
    };

    // Session.cpp: the course of the session
    bool mGreet();
    bool mStep();
    bool mLeave();
    bool mSend(const Request& rRequest, std::span<float> fTarget = {});
    bool mReceive();
    bool mSettle();
    bool mCheckReply(Pending& rPending);
    std::string mFindFault(const Pending& rPending) const;
    bool mCheckConsole();
    bool mWrong(const Pending& rPending, const std::string& strWhat);
    bool mWrong(const std::string& strWhat);
    bool mLost() { return m_rClient.IsCut() ? false : mWrong("no reply, or not in time"); }

    // Results.cpp: jobs, whose results come from the oracle
    bool mServeJob(const Request& rRequest);
    bool mRun(const Request& rRequest);
    bool mFetch(bool bReproject);
    bool mCheckJob(const Model& rBefore, bool bReproject);
    bool mAlign(const Request& rRequest);
    bool mCheckImage(const Values& rExpected, const Images& rBefore, int n);
    bool mCheckSums(const AlignSums& rExpected);
    bool mAgrees(ECheck eCheck, double dError, double dTolerance);

    CRawClient& m_rClient;
    CChoices& m_r;
    Model& m_rModel;
    CConsole& m_rConsole;
    Tally& m_rTally;
    CGenerator m_aGenerator;
    std::vector<Pending> m_vPending;
    Packet m_aReply;  // the last one
    std::optional<std::uint32_t> m_uiServerSerial;
    bool m_bCutInJob = false, m_bCutResets = false;
    std::string m_strError, m_strRefused;  // error lines that the console owes
};
