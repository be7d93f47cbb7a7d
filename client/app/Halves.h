#pragma once

#include <CLI/CLI.hpp>
#include <array>
#include <memory>
#include <string>

#include "Report.h"
#include "Series.h"
#include "VolumeOutput.h"
#include "talven/Reconstruction.h"

namespace talven
{

/// The volumes of two halves of a series beside that of the whole: of every second view, or of two
/// series from every second frame of each view.
class CHalves
{
public:
    /// All outlive this.
    CHalves(CSeries& rSeries, CReconstruction& rJob, CVolumeOutput& rOutput, CReport& rReport)
        : m_rSeries(rSeries), m_rJob(rJob), m_rOutput(rOutput), m_rReport(rReport)
    {
    }
    /// --halves.
    void AddOption(CLI::App& rApp);
    bool IsWanted() const { return m_bViews || !m_astrFrames[0].empty(); }

    /// Opens what there is to open, and checks that it fits the plan of the whole.
    [[nodiscard]] bool Check(const ReconRequest& rRequest, const ReconPlan& rPlan);
    /// Makes both volumes, as many iterations as the whole had.
    /// \param strOutput  name of the whole's file, which theirs are made of
    /// \param rInitial   the volume to start from; null: zeros
    [[nodiscard]] bool Make(const ReconRequest& rRequest, const ReconPlan& rPlan, int iIterations,
                            const std::string& strOutput, const ImageSource& rInitial);

    const std::string& GetError() const { return m_strError; }

private:
    bool mMakeViews(const ReconRequest& rRequest, const ReconPlan& rPlan, int iHalf,
                    int iIterations, const ImageSource& rInitial, ReconPlan& rHalf);
    bool mMakeFrames(const ReconPlan& rPlan, int iHalf, int iIterations,
                     const ImageSource& rInitial, ReconPlan& rHalf);
    template <class T>
    bool mCheck(bool bDone, const T& rDoer)
    {
        return bDone || Fail(m_strError, rDoer.GetError());
    }

    CSeries& m_rSeries;
    CReconstruction& m_rJob;
    CVolumeOutput& m_rOutput;
    CReport& m_rReport;
    bool m_bViews = false;
    std::array<std::string, 2> m_astrFrames;
    std::array<std::unique_ptr<CImageStack>, 2> m_apStacks;
    std::string m_strError;
};

}  // namespace talven
