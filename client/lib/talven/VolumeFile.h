#pragma once

#include <array>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include "talven/Memory.h"
#include "talven/MrcWriter.h"

namespace talven
{

/// How a volume is cut, turned and stored.
struct VolumeForm
{
    bool bXzy = false;                      ///< sections are XZ slices, one for each y
    bool bFlipZ = false;                    ///< the highest slice first
    std::array<int, 3> aiSize = {0, 0, 0};  ///< the middle so many voxels in x, y, z; 0: all
    EMrcMode eMode = EMrcMode::eFloat32;
    /// Values that become the least and the greatest number of a mode of whole numbers.
    std::optional<std::pair<double, double>> aRange;

    /// Whether somebody has to tell the range before the volume is written.
    bool NeedsRange() const;
};

/// \return false when the form does not fit a volume; rError begins with the part of it that is
///         wrong ("trim: ...").
[[nodiscard]] bool CheckForm(const VolumeForm& rForm, const JobSize& rSize, std::string& rError);

/// Writes the slices of a volume in a form.
class CVolumeFile
{
public:
    /// \param rForm     fits the volume, with a range where it needs one
    /// \param dPixel    Angstrom per voxel, 0: unknown
    /// \param strLabel  what it is; a second label tells the scale
    [[nodiscard]] bool Create(const std::string& strPath, const VolumeForm& rForm,
                              const JobSize& rSize, double dPixel, const std::string& strLabel);
    /// Slice iZ of the whole volume, shape [y][x].
    [[nodiscard]] bool WriteSlice(int iZ, std::span<const float> fSlice);
    [[nodiscard]] bool Finish() { return m_aFile.Finish(); }

    const MrcHeader& GetHeader() const { return m_aFile.GetHeader(); }
    const std::string& GetError() const { return m_aFile.GetError(); }

private:
    VolumeForm m_aForm;
    std::array<int, 3> m_aiWhole{}, m_aiFirst{};  // x, y, z
    CMrcWriter m_aFile;
};

}  // namespace talven
