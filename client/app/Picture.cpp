#include "Picture.h"

#include "talven/AtomicFile.h"
#include "talven/Text.h"

#ifdef __SANITIZE_ADDRESS__
// fontconfig, under cairo, keeps its tables to the end of the process.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:libfontconfig";
}
#endif

namespace talven
{

CPicture::CPicture(int iWidth, int iHeight)
    : m_iWidth(iWidth),
      m_iHeight(iHeight),
      m_pSurface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, iWidth, iHeight),
                 &cairo_surface_destroy),
      m_pContext(cairo_create(m_pSurface.get()), &cairo_destroy)
{
    cairo_set_source_rgb(GetContext(), 1, 1, 1);
    cairo_paint(GetContext());
    cairo_select_font_face(GetContext(), "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL,
                           CAIRO_FONT_WEIGHT_NORMAL);
}

void CPicture::DrawText(double dX, double dY, const std::string& strText, double dSize,
                        Anchor aAnchor) const
{
    cairo_set_font_size(GetContext(), dSize);
    cairo_text_extents_t aText;
    cairo_font_extents_t aFont;
    cairo_text_extents(GetContext(), strText.c_str(), &aText);
    cairo_font_extents(GetContext(), &aFont);
    cairo_move_to(GetContext(), dX - aAnchor.dX * aText.x_advance,
                  dY + aFont.ascent - aAnchor.dY * (aFont.ascent + aFont.descent));
    cairo_show_text(GetContext(), strText.c_str());
}

bool CPicture::Encode(std::vector<std::byte>& rPng, std::string& rError) const
{
    const auto Append = [](void* pvPng, const unsigned char* pucData, unsigned int uiBytes)
    {
        auto& rBytes = *static_cast<std::vector<std::byte>*>(pvPng);
        const auto* pcData = reinterpret_cast<const std::byte*>(pucData);
        rBytes.insert(rBytes.end(), pcData, pcData + uiBytes);
        return CAIRO_STATUS_SUCCESS;
    };
    rPng.clear();
    cairo_surface_flush(m_pSurface.get());
    const cairo_status_t eStatus =
        cairo_surface_write_to_png_stream(m_pSurface.get(), Append, &rPng);
    return eStatus == CAIRO_STATUS_SUCCESS ||
           Fail(rError, std::string("cannot encode: ") + cairo_status_to_string(eStatus));
}

bool CPicture::Write(const std::string& strPath, std::string& rError) const
{
    std::vector<std::byte> vcPng;
    if (!Encode(vcPng, rError)) return Fail(rError, strPath + ": " + rError);
    CAtomicFile aFile;
    return (aFile.Create(strPath) && aFile.WriteAt(0, vcPng) && aFile.Commit()) ||
           Fail(rError, aFile.GetError());
}

}  // namespace talven
