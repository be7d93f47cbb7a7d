#pragma once

#include <array>
#include <optional>
#include <span>
#include <utility>

#include "tests/model/Request.h"
#include "tests/oracle/JobOracle.h"

/// The reply that a request has to get.
struct Expected
{
    const Kind* pKind = nullptr;  ///< null: no reply
    bool bDone = true;            ///< carried out; if not, one error line names the message
    bool bUnsure = false;         ///< whether it is, the machine's memory decides
    Words vuiData = {};
    std::vector<std::pair<int, std::uint32_t>> vFields = {};  ///< defined words beyond word 5
};

/// The reference: what the server holds for its client after the requests so far, and the reply to
/// each of them.
struct Model
{
    std::uint64_t ulMemory = 0;  ///< what uploads may take, bytes; 0: more than they do
    bool bSwap = false;          ///< packets have the other byte order
    Images aStack, aVolume, aMeasured;
    std::vector<float> vfAngles;
    Words vuiList;
    EMethod eMethod = EMethod::eBackProj;
    std::uint32_t uiIterations = 1, uiSets = 1;
    Words vuiSetSize;
    std::vector<float> vfRelax;
    std::optional<OracleBox> aBox;
    bool bBoxKnown = false;  ///< another client's may be there
    std::uint32_t uiInterval = 0;
    std::array<int, 3> aiKernel = {0, 0, 0};
    std::vector<float> vfKernel;
    std::vector<Words> vvuiStat;                          ///< R-factor pairs of each iteration
    std::optional<std::array<std::uint32_t, 8>> auiSums;  ///< last comparison, unknown at first
    std::optional<std::array<std::uint32_t, 2>> auiProp;  ///< memory of the devices

    /// Takes the request as the server has to. A job's results are not made here: they are checked
    /// and taken over from the server.
    Expected Serve(const Request& rRequest);
    /// Forgets what ends with the client; of one that was cut off, nobody knows what has arrived.
    void EndClient(bool bCut);

    /// Type of the message whose content keeps the job from being run, 0 when nothing does.
    std::uint32_t FindObstacle(bool bReproject) const;
    /// The same for what the server carries out and no oracle can follow.
    std::uint32_t FindDoubt(bool bReproject) const;
    /// Samples that a job takes, roughly.
    double GetWork() const;
    TestJob MakeJob(bool bReproject) const;
    TestData MakeData() const;

private:
    bool mServe(const Request& rRequest, Expected& rExpected);
    bool mProjSize(const Request& rRequest);
    bool mVolSize(const Request& rRequest);
    bool mMProjSize(const Request& rRequest);
    bool mSetOp(const Request& rRequest);
    bool mReconOpt(const Request& rRequest);
    bool mWeightOpt(const Request& rRequest);
    bool mSmoothOpt(const Request& rRequest);
    bool mStat(const Request& rRequest, Expected& rExpected) const;
    bool mCompReply(Expected& rExpected) const;
    bool mCompare(const Request& rRequest, Expected& rExpected);
    bool mJob(bool bReproject, Expected& rExpected) const;
    bool mAlign(const Request& rRequest, Expected& rExpected) const;
    bool mFits(const Request& rSize, std::uint64_t ulBytes, std::uint64_t ulOld) const;
    bool mIsUnsure(double dExtra) const;
    std::uint64_t mGetStackBytes() const;
};

/// Missing pixels, by the limit that the protocol states.
inline bool IsMissing(float fPixel)
{
    return double(fPixel) < -1e15;
}

/// Pixels of a stack that are missing or ordinary numbers.
bool ArePlain(std::span<const float> fPixels);
