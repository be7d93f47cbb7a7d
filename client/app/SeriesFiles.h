#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "talven/ImageStack.h"
#include "talven/Mdoc.h"
#include "talven/ReconPlan.h"
#include "talven/TiltCommands.h"

namespace talven
{

/// The files that come with a tilt series: angles, maps of the views, .mdoc, command files.
///
/// An option that is given counts more than what a file says; docs/formats.md has the tables. Where
/// two files disagree, the error has both values.
class CSeriesFiles
{
public:
    /// --angles and --mdoc; where volumes are made, --from and --dose-weight, too.
    /// \param rApp  its other options win over files when they are given; outlives this
    void AddOptions(CLI::App& rApp, bool bVolumes = true);
    /// Reads the files.
    /// \param rStack    has the views; borrowed for the call
    /// \param strXf     the maps that an option names; empty: none
    /// \param rRequest  receives what they say about the reconstruction
    [[nodiscard]] bool Read(CImageStack& rStack, const std::string& strXf, ReconRequest& rRequest);

    /// Degrees, of every view of the stack; 0 for a view that no file knows, which is left out.
    const std::vector<float>& GetAngles() const { return m_vfAngles; }
    /// Of every view of the stack; empty: not known.
    const std::vector<ViewDose>& GetDoses() const { return m_aViews.aDoses; }
    /// Whether the views shall be weighed by them; then all that this takes is known.
    bool IsDoseWeighted() const { return m_bDoseWeight; }
    /// Of the microscope, kV; 300 where no file tells.
    double GetVoltage() const { return m_aMdoc.dVoltage.value_or(0) > 0 ? *m_aMdoc.dVoltage : 300; }
    /// Whether the .mdoc tells where the tilt axis lies.
    bool HasTiltAxis() const { return m_aMdoc.dTiltAxis.has_value(); }
    /// Angstrom per pixel of the stack; 0: not known.
    double GetPixel() const { return m_dPixel; }
    /// Where the angles came from, and what else a user might not expect; one line.
    const std::string& GetNote() const { return m_strNote; }

    const std::string& GetError() const { return m_strError; }

private:
    bool mReadFiles(const std::string& strXf, ReconRequest& rRequest);
    bool mCheckPixel();
    bool mTakeBin(ReconRequest& rRequest);
    bool mTakeAxis(ReconRequest& rRequest);
    bool mTakeVolume(ReconRequest& rRequest);
    bool mCheckSubset(const ImageSize& rAligned, double dUnit);
    void mTakeFilter(FilterRequest& rFilter) const;
    bool mTakeAngles();
    bool mTakeMdocAngles();
    bool mCheckAngles();
    bool mTakeViews(ReconRequest& rRequest);
    bool mCheckDoses();

    bool mIsGiven(const char* pcOption) const;
    /// Pixels of the aligned views in one of the command file's lengths.
    double mGetUnit(const ReconRequest& rRequest) const;
    void mNote(const std::string& strNote);
    bool mFail(const std::string& strError);

    const CLI::App* m_pApp = nullptr;
    std::string m_strAngles, m_strMdoc;
    std::vector<std::string> m_vstrFrom;

    CImageStack* m_pStack = nullptr;  // while it is read
    SeriesCommands m_aCommands;
    Mdoc m_aMdoc;
    MdocViews m_aViews;
    bool m_bDoseWeight = false;
    bool m_bRaw = false;  // the stack's views are not aligned yet
    std::string m_strAnglesFrom;
    std::vector<float> m_vfAngles;
    double m_dPixel = 0;
    std::string m_strNote, m_strError;
};

}  // namespace talven
