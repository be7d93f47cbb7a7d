#pragma once

#include <span>
#include <string>
#include <vector>

#include "talven/ImageStack.h"
#include "talven/ServerJob.h"

namespace talven
{

/// Turns raw views of an X-ray detector into what the specimen did to the beam:
/// (raw - dark) / (flat - dark), or the negative logarithm of that, the integral of the absorption
/// along the ray.
class CFlatField
{
public:
    /// What is let through is at least this before the logarithm: there a camera sees nothing but
    /// its noise. -ln of it is 9.2.
    static constexpr float m_fLeast = 1e-4f;
    /// Pixels that see less than this share of the median beam are dead.
    static constexpr double m_dLeastBeam = 1e-3;

    /// Takes the means of all flat and of all dark frames.
    /// \param pFlat  nullptr: 1 everywhere
    /// \param pDark  nullptr: 0 everywhere
    /// \param rSize  of the views and of the frames
    /// \return false when frames cannot be read or have another size; rError begins with their file
    [[nodiscard]] bool Make(CImageStack* pFlat, CImageStack* pDark, bool bMinusLog,
                            const ImageSize& rSize, std::string& rError);

    /// Whether views stay as they are.
    bool IsNone() const { return !m_bMinusLog && m_vfGain.empty(); }

    /// A view in place. Pixels that are missing stay so. Dead ones get what lies on a straight line
    /// between their neighbours in the row, or the value of the only one; those of a row without
    /// any become missing.
    void Correct(std::span<float> fView) const;
    /// The same of each image that this source gives. Borrows this object.
    ImageSource Correct(ImageSource Views) const;

private:
    static void mBridge(std::span<float> fRow, std::span<const float> fGains);

    bool m_bMinusLog = false;
    std::size_t m_tX = 0;
    std::vector<float> m_vfDark, m_vfGain;  // [y][x], both or none; gain 0: a dead pixel
};

}  // namespace talven
