#pragma once

#include <CLI/CLI.hpp>
#include <span>
#include <string>
#include <vector>

#include "SeriesFiles.h"
#include "XrayViews.h"
#include "talven/ImageStack.h"
#include "talven/ReconPlan.h"
#include "talven/ServerJob.h"

namespace talven
{

/// The tilt series of a command: its views, and what its files tell about them.
class CSeries
{
public:
    /// --tilts, the files that come with it, and how raw views are aligned.
    /// \param rRequest  receives what options and files say about the reconstruction; outlives this
    void AddOptions(CLI::App& rApp, ReconRequest& rRequest);
    /// Reads everything but the pixels, and checks that it fits together.
    [[nodiscard]] bool Open();

    const std::string& GetPath() const { return m_strTilts; }
    const ImageSize& GetSize() const { return m_pStack->GetSize(); }
    int GetViewCount() const { return m_pStack->GetSections(); }
    /// Angstrom per raw pixel; 0: not known.
    double GetPixel() const { return m_aFiles.GetPixel(); }
    /// Degrees, of every view.
    std::span<const float> GetAngles() const { return m_aFiles.GetAngles(); }
    /// Of every view; empty: not known.
    const std::vector<ViewDose>& GetDoses() const { return m_aFiles.GetDoses(); }
    /// Where the angles came from, and what else a user might not expect; one line, may be empty.
    const std::string& GetNote() const { return m_aFiles.GetNote(); }

    /// What is done to X-ray views.
    const CXrayViews& GetXray() const { return m_aXray; }

    /// Image i is view iViews[i], corrected and weighed as the options ask. Borrows the numbers.
    ImageSource GetViews(std::span<const int> iViews) { return mGetViews(*m_pStack, iViews); }
    /// What a plan wants of them: whole raw views, or rows of aligned ones. Borrows the plan.
    ImageSource GetViews(const ReconPlan& rPlan) { return GetViewsOf(*m_pStack, rPlan); }
    /// The same of another stack of the same views.
    ImageSource GetViewsOf(CImageStack& rStack, const ReconPlan& rPlan) const;

    const std::string& GetError() const { return m_strError; }

private:
    ImageSource mGetViews(CImageStack& rStack, std::span<const int> iViews) const;

    std::string m_strTilts, m_strXf;
    ReconRequest* m_pRequest = nullptr;
    std::unique_ptr<CImageStack> m_pStack;
    CSeriesFiles m_aFiles;
    CXrayViews m_aXray;
    std::string m_strError;
};

}  // namespace talven
