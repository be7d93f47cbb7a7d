#pragma once

#include <CLI/CLI.hpp>
#include <span>
#include <string>
#include <vector>

#include "talven/MrcReader.h"
#include "talven/ReconPlan.h"
#include "talven/ServerJob.h"

namespace talven
{

/// The tilt series of a command: its views, and what its files tell about them.
class CSeries
{
public:
    /// --tilts, --angles, and how raw views are aligned.
    /// \param rRequest  receives what options and files say about the reconstruction; outlives this
    void AddOptions(CLI::App& rApp, ReconRequest& rRequest);
    /// Reads everything but the pixels, and checks that it fits together.
    [[nodiscard]] bool Open();

    const std::string& GetPath() const { return m_strTilts; }
    ImageSize GetSize() const { return {m_aStack.GetHeader().iX, m_aStack.GetHeader().iY}; }
    int GetViewCount() const { return m_aStack.GetHeader().iZ; }
    /// Angstrom per raw pixel; 0: not known.
    double GetPixel() const { return m_aStack.GetHeader().dPixel; }
    /// Degrees, of every view.
    std::span<const float> GetAngles() const { return m_vfAngles; }

    /// Image i is view viViews[i]. Borrows both.
    ImageSource GetViews(std::span<const int> iViews);

    const std::string& GetError() const { return m_strError; }

private:
    bool mReadAngles();

    std::string m_strTilts, m_strAngles, m_strXf;
    ReconRequest* m_pRequest = nullptr;
    CMrcReader m_aStack;
    std::vector<float> m_vfAngles;
    std::string m_strError;
};

}  // namespace talven
