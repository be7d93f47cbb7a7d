#pragma once

#include <array>
#include <span>
#include <vector>

namespace talven
{

/// The three central slices of a volume that passes by section by section.
class CVolumeViews
{
public:
    /// A picture, row 0 at the bottom, shape [iHeight][iWidth].
    struct View
    {
        const char* pcName;  ///< "XY"
        char cAxis;          ///< the axis across the picture: 'Z'
        int iAt;             ///< where on it the slice lies, from 0
        int iWidth, iHeight;
        std::vector<float> vfPixels;
    };

    CVolumeViews(int iX, int iY, int iZ);
    /// Takes section iZ, shape [y][x].
    void Add(int iZ, std::span<const float> fSection);
    /// XY, ZY (same height as XY) and XZ.
    std::span<const View> GetViews() const { return m_aViews; }

private:
    int m_iX, m_iY, m_iZ;
    std::array<View, 3> m_aViews;  // XY, ZY, XZ
};

}  // namespace talven
