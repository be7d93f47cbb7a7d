#include "TiffStack.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "StackFormats.h"
#include "talven/Text.h"

namespace talven
{
namespace
{

/// The first error of the library since the last CCollect.
thread_local std::string g_strTiffError;

void NoteError(thandle_t, const char*, const char* pcFormat, va_list aArgs)
{
    char acText[200];
    if (!g_strTiffError.empty() || std::vsnprintf(acText, sizeof(acText), pcFormat, aArgs) < 0)
        return;
    for (char* pc = acText; *pc != 0; ++pc) g_strTiffError += *pc < ' ' || *pc > '~' ? '?' : *pc;
}

/// Keeps the library from printing, as long as it lives, and notes its errors.
class CCollect
{
public:
    CCollect()
        : m_pError(TIFFSetErrorHandler(nullptr)),
          m_pWarning(TIFFSetWarningHandler(nullptr)),
          m_pErrorExt(TIFFSetErrorHandlerExt(NoteError))
    {
        g_strTiffError.clear();
    }
    ~CCollect()
    {
        TIFFSetErrorHandler(m_pError);
        TIFFSetWarningHandler(m_pWarning);
        TIFFSetErrorHandlerExt(m_pErrorExt);
    }
    CCollect(const CCollect&) = delete;
    CCollect& operator=(const CCollect&) = delete;

private:
    TIFFErrorHandler m_pError, m_pWarning;
    TIFFErrorHandlerExt m_pErrorExt;
};

template <class T>
void Convert(const std::byte* pcStored, std::size_t tCount, float* pfPixels)
{
    for (std::size_t i = 0; i < tCount; ++i)
    {
        T tValue;
        std::memcpy(&tValue, pcStored + i * sizeof(T), sizeof(T));
        pfPixels[i] = static_cast<float>(tValue);
    }
}

using Converter = void (*)(const std::byte*, std::size_t, float*);

/// nullptr: no pixels that can be read.
Converter FindConverter(int iFormat, int iBits)
{
    switch (iFormat * 100 + iBits)
    {
    case SAMPLEFORMAT_UINT * 100 + 8:
        return Convert<std::uint8_t>;
    case SAMPLEFORMAT_UINT * 100 + 16:
        return Convert<std::uint16_t>;
    case SAMPLEFORMAT_UINT * 100 + 32:
        return Convert<std::uint32_t>;
    case SAMPLEFORMAT_INT * 100 + 8:
        return Convert<std::int8_t>;
    case SAMPLEFORMAT_INT * 100 + 16:
        return Convert<std::int16_t>;
    case SAMPLEFORMAT_INT * 100 + 32:
        return Convert<std::int32_t>;
    case SAMPLEFORMAT_IEEEFP * 100 + 32:
        return Convert<float>;
    case SAMPLEFORMAT_IEEEFP * 100 + 64:
        return Convert<double>;
    default:
        return nullptr;
    }
}

}  // namespace

bool CTiffStack::Open(const std::string& strPath)
{
    const CCollect aCollect;
    m_strPath = strPath;
    m_iSections = 0;
    m_pFile.reset(TIFFOpen(strPath.c_str(), "r"));
    return m_pFile ? mFindPages() : mFailHere("cannot read this TIFF file");
}

/// Of the numbers of a page, the one with this tag, or its default.
std::uint16_t CTiffStack::mGetField(std::uint32_t uiTag) const
{
    std::uint16_t usValue = 0;
    TIFFGetFieldDefaulted(m_pFile.get(), uiTag, &usValue);
    return usValue;
}

bool CTiffStack::mFindPages()
{
    m_vulPages.clear();
    ImageSize aFirst;
    do
    {
        std::uint32_t uiX = 0, uiY = 0;
        TIFFGetField(m_pFile.get(), TIFFTAG_IMAGEWIDTH, &uiX);
        TIFFGetField(m_pFile.get(), TIFFTAG_IMAGELENGTH, &uiY);
        m_vulPages.push_back(TIFFCurrentDirOffset(m_pFile.get()));
        if (!mSetSize(uiX, uiY, m_vulPages.size())) return false;
        if (m_vulPages.size() == 1) aFirst = m_aSize;
        Blocks aBlocks;
        Converter ConvertAll;
        if (m_aSize.iX != aFirst.iX || m_aSize.iY != aFirst.iY)
            return mFail(Format("image %zu is %u x %u, the first one %d x %d", m_vulPages.size(),
                                uiX, uiY, aFirst.iX, aFirst.iY));
        if (!mCheckPage(aBlocks, ConvertAll)) return false;
    } while (TIFFReadDirectory(m_pFile.get()) != 0);
    // The library says why a chain of pages ends early.
    return g_strTiffError.empty() ||
           mFailHere(Format("cannot read what comes after image %zu", m_vulPages.size()));
}

/// Whether the page that the library is at can be read, and how.
bool CTiffStack::mCheckPage(Blocks& rBlocks, Converter& rConvert)
{
    const int iBits = mGetField(TIFFTAG_BITSPERSAMPLE);
    const int iSamples = mGetField(TIFFTAG_SAMPLESPERPIXEL);
    const int iFormat = mGetField(TIFFTAG_SAMPLEFORMAT);
    const int iOrientation = mGetField(TIFFTAG_ORIENTATION);
    rConvert = FindConverter(iFormat == SAMPLEFORMAT_VOID ? SAMPLEFORMAT_UINT : iFormat, iBits);
    if (iSamples != 1 || mGetField(TIFFTAG_PHOTOMETRIC) == PHOTOMETRIC_PALETTE)
        return mFail("a TIFF file with colours, not with one number a pixel");
    if (rConvert == nullptr)
        return mFail(
            Format("TIFF pixels of %d bits and kind %d are not supported (8, 16 and 32 "
                   "bits and floats of 32 and 64 bits are)",
                   iBits, iFormat));
    if (iOrientation != ORIENTATION_TOPLEFT && iOrientation != ORIENTATION_BOTLEFT)
        return mFail(Format("a TIFF file with turned pages (orientation %d)", iOrientation));
    m_bTurn = iOrientation == ORIENTATION_TOPLEFT;
    return mFindBlocks(std::size_t(iBits) / 8, rBlocks);
}

bool CTiffStack::mFindBlocks(std::size_t tPixelBytes, Blocks& rBlocks)
{
    TIFF* pFile = m_pFile.get();
    const auto uiX = static_cast<std::uint32_t>(m_aSize.iX);
    const auto uiY = static_cast<std::uint32_t>(m_aSize.iY);
    rBlocks.bTiles = TIFFIsTiled(pFile) != 0;
    if (rBlocks.bTiles)
    {
        TIFFGetField(pFile, TIFFTAG_TILEWIDTH, &rBlocks.uiX);
        TIFFGetField(pFile, TIFFTAG_TILELENGTH, &rBlocks.uiY);
    }
    else
    {
        rBlocks.uiX = uiX;
        TIFFGetFieldDefaulted(pFile, TIFFTAG_ROWSPERSTRIP, &rBlocks.uiY);
        rBlocks.uiY = std::min(rBlocks.uiY, uiY);
    }
    // A tile is a little larger than the page at most, so that nobody can ask for memory in vain.
    constexpr std::uint32_t uiSpare = 4096;
    if (rBlocks.uiX < 1 || rBlocks.uiY < 1 || rBlocks.uiX > uiX + uiSpare ||
        rBlocks.uiY > uiY + uiSpare)
        return mFail(Format("a TIFF file with tiles of %u x %u", rBlocks.uiX, rBlocks.uiY));
    rBlocks.tBytes = tPixelBytes * rBlocks.uiX * rBlocks.uiY;
    const auto ulExpected =
        static_cast<std::uint64_t>(rBlocks.bTiles ? TIFFTileSize64(pFile) : TIFFStripSize64(pFile));
    return ulExpected == rBlocks.tBytes || mFailHere("a TIFF file with broken strips or tiles");
}

bool CTiffStack::mRead(int iZ, std::span<float> fPixels)
{
    const CCollect aCollect;
    Blocks aBlocks;
    Converter ConvertAll = nullptr;
    if (TIFFSetSubDirectory(m_pFile.get(), m_vulPages[std::size_t(iZ)]) == 0)
        return mFailHere(Format("cannot read image %d", iZ + 1));
    if (!mCheckPage(aBlocks, ConvertAll)) return false;
    const auto uiX = static_cast<std::uint32_t>(m_aSize.iX);
    const auto uiY = static_cast<std::uint32_t>(m_aSize.iY);
    const std::size_t tRowBytes = aBlocks.tBytes / aBlocks.uiY;
    for (std::uint32_t y = 0; y < uiY; y += aBlocks.uiY)
        for (std::uint32_t x = 0; x < uiX; x += aBlocks.uiX)
        {
            if (!mReadBlock(aBlocks, x, y))
                return mFailHere(Format("image %d is truncated or damaged", iZ + 1));
            for (std::uint32_t j = 0; j < std::min(aBlocks.uiY, uiY - y); ++j)
                ConvertAll(m_vcBlock.data() + j * tRowBytes, std::min(aBlocks.uiX, uiX - x),
                           &fPixels[std::size_t(y + j) * uiX + x]);
        }
    if (m_bTurn) mTurnRows(fPixels);
    return true;
}

/// Reads the strip or tile that begins at this pixel.
bool CTiffStack::mReadBlock(const Blocks& rBlocks, std::uint32_t uiX, std::uint32_t uiY)
{
    TIFF* pFile = m_pFile.get();
    m_vcBlock.resize(rBlocks.tBytes);
    const auto lBytes = static_cast<tmsize_t>(rBlocks.tBytes);
    if (rBlocks.bTiles) return TIFFReadTile(pFile, m_vcBlock.data(), uiX, uiY, 0, 0) == lBytes;
    const auto uiRows = std::min(rBlocks.uiY, static_cast<std::uint32_t>(m_aSize.iY) - uiY);
    const auto lExpected = lBytes / static_cast<tmsize_t>(rBlocks.uiY) * tmsize_t(uiRows);
    return TIFFReadEncodedStrip(pFile, TIFFComputeStrip(pFile, uiY, 0), m_vcBlock.data(), lBytes) ==
           lExpected;
}

bool CTiffStack::mFailHere(const std::string& strWhat)
{
    return mFail(g_strTiffError.empty() ? strWhat : strWhat + ": " + g_strTiffError);
}

std::unique_ptr<CImageStack> OpenTiff(const std::string& strPath, std::string& rError)
{
    auto pStack = std::make_unique<CTiffStack>();
    if (pStack->Open(strPath)) return pStack;
    rError = pStack->GetError();
    return nullptr;
}

}  // namespace talven
