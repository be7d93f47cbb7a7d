#pragma once

#include <tiffio.h>

#include "talven/ImageStack.h"

namespace talven
{

/// The images of a TIFF file, one of each page: one number a pixel, in strips or tiles, of 8, 16 or
/// 32 bits, or floats of 32 or 64 bits.
class CTiffStack : public CImageStack
{
public:
    [[nodiscard]] bool Open(const std::string& strPath);

private:
    struct Closer
    {
        void operator()(TIFF* pFile) const { TIFFClose(pFile); }
    };
    /// Turns iCount stored pixels into floats.
    using Converter = void (*)(const std::byte* pcStored, std::size_t tCount, float* pfPixels);
    /// How a page is cut; a strip is a tile as wide as the page.
    struct Blocks
    {
        bool bTiles = false;
        std::uint32_t uiX = 0, uiY = 0;
        std::size_t tBytes = 0;
    };

    bool mRead(int iZ, std::span<float> fPixels) override;
    bool mFindPages();
    bool mCheckPage(Blocks& rBlocks, Converter& rConvert);
    bool mFindBlocks(std::size_t tPixelBytes, Blocks& rBlocks);
    bool mReadBlock(const Blocks& rBlocks, std::uint32_t uiX, std::uint32_t uiY);
    std::uint16_t mGetField(std::uint32_t uiTag) const;
    bool mFailHere(const std::string& strWhat);

    std::unique_ptr<TIFF, Closer> m_pFile;
    std::vector<std::uint64_t> m_vulPages;  // where each begins in the file
    std::vector<std::byte> m_vcBlock;
    bool m_bTurn = true;  // the page's highest row comes first
};

/// A folder of TIFF files with one image each.
class CTiffFolder : public CImageStack
{
public:
    [[nodiscard]] bool Open(const std::string& strPath);

private:
    bool mRead(int iZ, std::span<float> fPixels) override;
    bool mOpenFile(int iZ, CTiffStack& rFile);

    std::vector<std::string> m_vstrFiles;
};

}  // namespace talven
