#pragma once

#include <deque>

#include "tests/model/Choices.h"
#include "tests/model/Model.h"

/// Draws the requests of a session: uploads, options, jobs and questions that make sense for what
/// the server holds, and some that are spoilt in a word or in the length of their data.
class CGenerator
{
public:
    CGenerator(CChoices& rChoices, const Model& rModel) : m_r(rChoices), m_rModel(rModel) {}
    Request Next();
    /// The next request is a question.
    void Ask();

private:
    struct Planned
    {
        std::uint32_t uiType;
        int iIndex = -1;  ///< of an image, -1: any
    };
    // Generator.cpp: what comes next
    void mPlan();
    std::uint32_t mFindRemedy(std::uint32_t& rType);
    void mPlanImages(const Request& rSize);
    void mSpoil(Request& rRequest);
    bool mIsModest(const Request& rRequest) const;
    std::uint32_t mStrangeWord(std::uint32_t uiWord);

    // Requests.cpp: requests that make sense
    Request mMake(std::uint32_t uiType, int n);
    Request mImage(std::uint32_t uiType, int n);
    /// Of one of so many, as a word.
    std::uint32_t mIndex(std::size_t tCount);
    Request mProjSize();
    Request mVolSize();
    Request mSetOp();
    Request mReconOpt();
    Request mWeightOpt();
    Request mSmoothOpt();
    Request mAlign(std::uint32_t uiType);

    CChoices& m_r;
    const Model& m_rModel;
    std::deque<Planned> m_vPlan;
    int m_iRemedies = 0;  // since the last job
};
