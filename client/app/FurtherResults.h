#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "talven/Agreement.h"
#include "talven/Memory.h"
#include "talven/MrcReader.h"
#include "talven/RowRange.h"
#include "talven/Slices.h"

namespace talven
{

/// What is made of a volume that passes by, beside its file: pictures, R-factors, a comparison.
class CFurtherResults
{
public:
    /// --preview, --rfactor-plot, --rfactors and --reference.
    void AddOptions(CLI::App& rApp);
    /// Opens the volume to compare with, and says what cannot be written before the work.
    /// \param rSize     of the volume that will pass by
    /// \param rRows     those of the whole that it has
    /// \param iAllRows  of the whole and of the reference
    /// \param bSlices   whether the central slices are wanted in any case
    [[nodiscard]] bool Open(const JobSize& rSize, const RowRange& rRows, int iAllRows,
                            bool bSlices = false);
    /// The volume will pass by, perhaps once more.
    void Begin() { m_aAgreement = {}; }
    /// Looks at slice iZ, shape [y][x].
    [[nodiscard]] bool Look(int iZ, std::span<const float> fSlice, std::string& rError);
    /// Writes what was asked for. \param strMethod  how the volume was made
    [[nodiscard]] bool Write(std::span<const double> dRfactors, const std::string& strMethod);

    /// The central ones; there when they are wanted.
    const std::optional<CSlices>& GetSlices() const { return m_aSlices; }
    /// File of the reference; empty: none.
    const std::string& GetReference() const { return m_strReference; }
    const CAgreement& GetAgreement() const { return m_aAgreement; }
    /// "correlation 0.9876, relative RMS error 0.1234"
    std::string DescribeAgreement() const;
    const std::string& GetError() const { return m_strError; }

private:
    bool mWriteRfactors(std::span<const double> dRfactors);

    std::string m_strPreview, m_strPlot, m_strRfactors, m_strReference;
    std::optional<CSlices> m_aSlices;
    CMrcReader m_aReference;
    RowRange m_aRows;
    std::vector<float> m_vfReference;  // a slice
    CAgreement m_aAgreement;
    std::string m_strError;
};

/// Opens a volume that must have this size. \return false: rError says why not
[[nodiscard]] bool OpenSameSize(CMrcReader& rReader, const std::string& strPath,
                                const JobSize& rSize, int iRows, std::string& rError);

}  // namespace talven
