#pragma once

#include <filesystem>
#include <string>

#include "tests/model/Generator.h"
#include "tests/wire/RawClient.h"

/// What all sessions together have done.
struct Counts
{
    long lRequests = 0;
    long lResults = 0;  ///< that the oracle has computed too
    long lBeyond = 0;   ///< of them those of iterations beyond the tolerance, which must be rare
};

/// One session of drawn requests with a server: the model knows every reply, the oracle every
/// result.
///
/// Steps return false when the session is over: the connection was cut on purpose, or something was
/// wrong, which GetError() tells.
class CSession
{
public:
    /// \param rOutput  the file that the server prints to; empty: nobody knows
    CSession(CRawClient& rClient, CChoices& rChoices, Model& rModel, Counts& rCounts,
             const std::filesystem::path& rOutput)
        : m_rClient(rClient),
          m_r(rChoices),
          m_rModel(rModel),
          m_rCounts(rCounts),
          m_aOutput(rOutput),
          m_aGenerator(rChoices, rModel)
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
    };

    // Session.cpp: the course of the session
    bool mGreet();
    bool mStep();
    bool mLeave();
    bool mSend(const Request& rRequest, std::span<float> fTarget = {});
    bool mReceive();
    bool mSettle() { return mReceive() && mCheckOutput(); }
    bool mCheckReply(Pending& rPending);
    std::string mFindFault(const Pending& rPending) const;
    std::string mTakeOutput();
    bool mCheckOutput();
    bool mWrong(const std::string& strWhat);
    bool mLost() { return m_rClient.IsCut() ? false : mWrong("no reply, or not in time"); }

    // Results.cpp: jobs, whose results come from the oracle
    bool mServeJob(const Request& rRequest);
    bool mFetch(const Request& rRequest);
    bool mCheckJob(const Request& rRequest, const Model& rBefore);
    bool mCheckAlign(const Request& rRequest, const Images& rBefore, const Packet& rReply);

    CRawClient& m_rClient;
    CChoices& m_r;
    Model& m_rModel;
    Counts& m_rCounts;
    const std::filesystem::path m_aOutput;
    std::streamoff m_lTaken = 0;  // of the output
    CGenerator m_aGenerator;
    std::vector<Pending> m_vPending;
    Packet m_aReply;  // the last one
    std::optional<std::uint32_t> m_uiServerSerial;
    bool m_bCutInJob = false, m_bCutResets = false;
    std::string m_strError, m_strRefused;  // error lines that the console owes
};
