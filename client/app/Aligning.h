#pragma once

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <vector>

#include "Report.h"
#include "talven/SeriesAlign.h"
#include "talven/ServerLink.h"

namespace talven
{

/// The marker-free alignment of a command: its options, and what it says.
class CAligning
{
public:
    /// --fixed-axis, --isolated and --invert.
    void AddOptions(CLI::App& rApp);
    /// What they say; the rest is the command's.
    SeriesAlignRequest& GetRequest() { return m_aRequest; }

    /// Aligns some views of a stack on a server that is connected.
    /// \param fAngles  of all views of the stack, degrees
    /// \param viViews  that take part, ascending
    /// \param rViews   image i is view viViews[i]
    [[nodiscard]] bool Run(CServerLink& rLink, CReport& rReport, const ImageSize& rRaw,
                           std::span<const float> fAngles, const std::vector<int>& viViews,
                           const ImageSource& rViews);

    const SeriesAlignment& GetResult() const { return m_aResult; }
    /// Raw pixels to those of the blocks that were compared.
    const std::vector<int>& GetBins() const { return m_viBins; }
    /// The maps of all views of the stack, as an .xf file holds them; those that took no part lie
    /// as they are.
    const std::vector<ViewMap>& GetMaps() const { return m_aMaps; }
    /// Views of the stack that took part and do not look like the others, ascending.
    std::vector<int> ListLeftOut() const;
    /// "tilt axis at 3.47 +- 0.02 degrees, correlation 0.98, views 7,9 left out".
    std::string Describe() const;
    nlohmann::ordered_json MakeJson() const;

    const std::string& GetError() const { return m_strError; }

private:
    SeriesAlignRequest m_aRequest;
    bool m_bFixed = false;
    std::vector<int> m_viViews, m_viBins;
    SeriesAlignment m_aResult;
    std::vector<ViewMap> m_aMaps;
    std::string m_strError;
};

}  // namespace talven
