#pragma once

#include <optional>
#include <string>

#include "tests/oracle/Oracle.h"
#include "tests/soak/Console.h"
#include "tests/soak/Model.h"
#include "tests/soak/Random.h"
#include "tests/soak/Tally.h"
#include "tests/wire/RawClient.h"

/// A request with its first parameter in word 4.
struct Request
{
    std::uint32_t uiType;
    RawClient::Words vuiFields, vuiData;
};

/// One random session: it keeps its own account of what the server holds, predicts every reply and
/// computes every result.
///
/// Steps return false when the session is over: the connection was cut on purpose, or something
/// was wrong, which GetError() tells.
class CSession
{
public:
    CSession(int iPort, CRandom aRandom, CConsole& rConsole, Tally& rTally);
    /// \return false when something was wrong
    bool Run();
    const std::string& GetError() const { return m_strError; }

private:
    using Words = RawClient::Words;

    // Session.cpp: the course of the session
    bool mGreet();
    bool mStep();
    bool mLeave();
    bool mSpoil();

    // Exchange.cpp: requests and replies
    bool mServe(const Request& rRequest, bool bDone = true);
    bool mServeAll(const std::vector<Request>& rRequests);
    bool mSend(const Request& rRequest);
    bool mReply(const Request& rRequest, std::uint32_t uiSerial, bool bDone);
    bool mCheckReply(const Request& rRequest, std::uint32_t uiSerial, bool bDone);
    bool mCheckConsole(const Request& rRequest, bool bDone);
    bool mGet(std::uint32_t uiType, int iIndex, std::span<const float> fExpected);
    [[gnu::format(printf, 2, 3)]] bool mWrong(const char* pcFormat, ...);
    bool mLost(const char* pcWhat);

    // Uploads.cpp: each makes one holder; spoilt: the server stores it, but no job can use it
    bool mStack(bool bSpoilt);
    bool mVolume(bool bSpoilt);
    bool mMeasured();
    bool mSelect(bool bSpoilt);
    bool mMethod(bool bSpoilt);
    bool mBox(bool bSpoilt);
    bool mSetBox(const std::optional<OracleBox>& rBox);
    bool mSmooth(bool bSpoilt);
    bool mOption(bool bSpoilt);
    bool mMakeAll();
    std::vector<float> mPixels(int iX, int iY, float fScale);

    // Jobs.cpp, Alignment.cpp: each compares all that it changed with the oracle
    bool mJob(bool bReproject);
    bool mPrepareJob();
    bool mCheckJob(const TestJob& rJob, const TestData& rStart, const TestData& rGot,
                   const TestData& rExpected);
    bool mFetchVolume(TestData& rGot);
    bool mFetchStack(TestData& rGot);
    bool mFetchStat(const TestJob& rJob, TestData& rGot);
    bool mAgrees(ECheck eCheck, double dError, double dTolerance);
    OracleAlign mMakeAlignJob();
    bool mTransform();
    bool mCompare();
    Request mMakeAlign(bool bCompare, const OracleAlign& rJob, int iMProj, int iAProj) const;

    // Refusals.cpp
    bool mLook();
    bool mIgnored();
    bool mRefusal();
    std::vector<Request> mBadUploads();
    std::vector<Request> mBadOptions();
    std::vector<Request> mBadJobs();

    CRandom m_aRandom;
    CConsole& m_rConsole;
    Tally& m_rTally;
    RawClient m_aClient;
    bool m_bCutInJob = false, m_bCutResets = false;
    Model m_aModel;
    Packet m_aReply;  // the last one
    std::optional<std::uint32_t> m_uiServerSerial;
    std::string m_strError;
};
