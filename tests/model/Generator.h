#pragma once

#include <deque>

#include "tests/model/Choices.h"
#include "tests/model/Model.h"

/// Draws the requests of a session: uploads, options, jobs and questions that make sense for what
/// the server holds, and some that are spoilt in a word or in the length of their data.
class CGenerator
{
public:
    /// \param iLargest  columns of images, about
    /// \param dMostWork  samples of a job
    CGenerator(CChoices& rChoices, const Model& rModel, int iLargest, double dMostWork)
        : m_r(rChoices), m_rModel(rModel), m_iLargest(iLargest), m_dMostWork(dMostWork)
    {
    }
    Request Next();
    /// The next request is a question.
    void Ask();
    /// Whether the session has done something whole; only then it may end quietly.
    bool IsBetween() const { return m_vPlan.empty(); }

private:
    struct Planned
    {
        std::uint32_t uiType;
        int iIndex = -1;  ///< of an image, -1: any
    };

    // Generator.cpp: what comes next
    void mPlan();
    void mPlanFirst(std::uint32_t uiType) { m_vPlan.push_front({uiType}); }
    void mPlanImages(std::uint32_t uiType, std::uint32_t uiCount, int iPercent);
    std::uint32_t mFindRemedy(std::uint32_t uiType);
    void mSpoil(Request& rRequest);
    bool mIsModest(const Request& rRequest) const;
    std::uint32_t mStrangeWord(std::uint32_t uiWord);

    // Requests.cpp: requests that make sense
    Request mMake(const Planned& rPlanned);
    Request mProjSize();
    Request mVolSize();
    Request mMProjSize();
    Request mImage(std::uint32_t uiType, const Images& rImages, int n);
    Request mGet(std::uint32_t uiType, int iCount);
    Request mSetOp();
    Request mReconOpt();
    Request mWeightOpt();
    Request mSmoothOpt();
    Request mAlign(std::uint32_t uiType);
    Request mIgnored();

    CChoices& m_r;
    const Model& m_rModel;
    const int m_iLargest;
    const double m_dMostWork;
    std::deque<Planned> m_vPlan;
    int m_iRemedies = 0;  // since the last job
};
