#pragma once

#include <cairo.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace talven
{

/// A picture that is drawn with cairo and written as PNG.
class CPicture
{
public:
    CPicture(int iWidth, int iHeight);
    cairo_t* GetContext() const { return m_pContext.get(); }
    int GetWidth() const { return m_iWidth; }
    int GetHeight() const { return m_iHeight; }

    /// Where a text lies around the point given, as fractions of its size: 0 left or top, 1 right
    /// or bottom.
    struct Anchor
    {
        double dX, dY;
    };
    void DrawText(double dX, double dY, const std::string& strText, double dSize,
                  Anchor aAnchor) const;

    /// The bytes of a PNG file. \return false: rError says why, without a file's name
    [[nodiscard]] bool Encode(std::vector<std::byte>& rPng, std::string& rError) const;
    /// The file appears when it is complete.
    [[nodiscard]] bool Write(const std::string& strPath, std::string& rError) const;

private:
    int m_iWidth, m_iHeight;
    std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> m_pSurface;
    std::unique_ptr<cairo_t, decltype(&cairo_destroy)> m_pContext;
};

}  // namespace talven
