#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

#include "talven/FlatField.h"
#include "talven/ImageStack.h"
#include "talven/ReconPlan.h"
#include "talven/RotationCentre.h"

namespace talven
{

/// What raw views of an X-ray scan need: flat and dark frames, the logarithm, the place of the
/// rotation axis.
class CXrayViews
{
public:
    /// --flat, --dark, --minus-log and --centre.
    void AddOptions(CLI::App& rApp);
    /// Reads the frames, those that the series holds where none are given, and finds the axis.
    /// \param fAngles   of all views, degrees
    /// \param rRequest  says which views take part; receives the axis
    [[nodiscard]] bool Open(CImageStack& rSeries, std::span<const float> fAngles,
                            ReconRequest& rRequest, std::string& rError);

    /// Corrects what this source gives. Borrows this object.
    ImageSource Correct(ImageSource Views) const;
    /// Whether that leaves them as they are.
    bool IsNone() const { return m_aFlatField.IsNone(); }

    /// What was read and found, " (dark: 5 frames)"; empty: nothing.
    std::string Describe() const;
    /// Columns from 0; nothing: not asked for.
    std::optional<double> GetCentre() const { return m_dCentre; }

private:
    bool mOpenFrames(CImageStack& rSeries, CImageStack::EFrames eFrames, const std::string& strPath,
                     std::unique_ptr<CImageStack>& rFrames, std::string& rError);
    bool mFindCentre(CImageStack& rSeries, std::span<const float> fAngles,
                     const ReconRequest& rRequest, std::string& rError);

    std::string m_strFlat, m_strDark;
    bool m_bMinusLog = false, m_bFindCentre = false;
    std::optional<double> m_dCentre;
    CFlatField m_aFlatField;
    RotationCentre m_aFound;
    std::vector<std::string> m_vstrNotes;
};

}  // namespace talven
