#pragma once

#include <array>
#include <optional>
#include <span>
#include <utility>

#include "tests/oracle/JobOracle.h"
#include "tests/wire/Request.h"

struct Model;
struct Expected;

/// What is the same for all requests of a type.
struct Kind
{
    std::uint32_t uiType;
    const char* pcName;     ///< in error lines
    std::uint32_t uiReply;  ///< type of the reply, 0: none
    bool (Model::*pServe)(const Request& rRequest, Expected& rExpected) = nullptr;
};
/// Null for types that are ignored.
const Kind* FindKind(std::uint32_t uiType);
bool IsJob(std::uint32_t uiType);
/// For a person: name, fields, length of the data.
std::string ToText(const Request& rRequest);

/// The reply that a request has to get.
struct Expected
{
    const Kind* pKind = nullptr;  ///< null: no reply
    bool bDone = true;            ///< carried out; if not, one error line names the message
    Words vuiData = {};
    std::vector<std::pair<int, std::uint32_t>> vFields = {};  ///< defined words beyond word 5
};

/// The reference: what the server holds for its client after the requests so far, and the reply to
/// each of them.
struct Model
{
    std::uint64_t ulMemory = 0;  ///< that uploads may take, bytes; 0: more than they do
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
    Images aKernel;
    std::vector<std::vector<float>> vvfStat;              ///< R-factor pairs of each iteration
    std::optional<std::array<std::uint32_t, 8>> auiSums;  ///< last comparison, unknown at first

    /// Takes the request as the server has to. A job's results are not made here: they are checked
    /// and taken over from the server.
    Expected Serve(const Request& rRequest);
    /// Forgets what ends with the client; of one that was cut off, nobody knows what has arrived.
    void EndClient(bool bCut);

    /// Type of the message whose content keeps a job from being run, 0 when nothing does.
    /// \param bFollow  or keeps the oracle from following it: by numbers that are not plain, or
    /// where
    ///                 rounding decides
    std::uint32_t FindObstacle(std::uint32_t uiType, bool bFollow) const;
    /// Whether the oracle can follow: no steep slopes.
    bool IsPlain(const OracleAlign& rAlign) const;
    /// Samples that a job takes, roughly.
    double GetWork() const;
    TestJob MakeJob(bool bReproject) const;
    TestData MakeData() const;
    /// Those that messages of the type are about.
    const Images& GetImages(std::uint32_t uiType) const;

private:
    friend const Kind* FindKind(std::uint32_t uiType);
    Images& mImages(std::uint32_t uiType) { return const_cast<Images&>(GetImages(uiType)); }
    bool mDone(const Request&, Expected&) { return true; }
    bool mByteOrder(const Request& rRequest, Expected& rExpected);
    bool mSize(const Request& rRequest, Expected& rExpected);
    bool mSet(const Request& rRequest, Expected& rExpected);
    bool mGet(const Request& rRequest, Expected& rExpected);
    bool mSetOp(const Request& rRequest, Expected& rExpected);
    bool mReconOpt(const Request& rRequest, Expected& rExpected);
    bool mWeightOpt(const Request& rRequest, Expected& rExpected);
    bool mSmoothOpt(const Request& rRequest, Expected& rExpected);
    bool mStatGet(const Request& rRequest, Expected& rExpected);
    bool mCompReply(const Request& rRequest, Expected& rExpected);
    bool mJob(const Request& rRequest, Expected& rExpected);
    bool mAlign(const Request& rRequest, Expected& rExpected);
};

/// The values of a request to align: matrix, scale and what decides between them; nothing when data
/// is missing.
std::optional<OracleAlign> ReadAlign(const Request& rRequest);

/// Whether all are 0 or ordinary numbers: not beyond fMost, nor so small that they may count as 0.
/// \param bPixels  or missing pixels
bool ArePlain(std::span<const float> fValues, float fMost, bool bPixels = false);
