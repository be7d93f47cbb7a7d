#include "talven/ImageStack.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "StackFormats.h"
#include "talven/MrcReader.h"

namespace talven
{
namespace
{

using namespace std::string_view_literals;

constexpr std::uint64_t g_ulMaxExtent = 1 << 24;

using Opener = std::unique_ptr<CImageStack> (*)(const std::string& strPath, std::string& rError);

std::unique_ptr<CImageStack> OpenMrc(const std::string& strPath, std::string& rError)
{
    auto pReader = std::make_unique<CMrcReader>();
    if (pReader->Open(strPath)) return pReader;
    rError = pReader->GetError();
    return nullptr;
}

/// How files of a kind begin.
constexpr struct
{
    std::string_view strBytes;
    Opener Open;
} g_aKinds[] = {{"\x89HDF\r\n\x1a\n"sv, OpenHdf5},
                {"II*\0"sv, OpenTiff},
                {"MM\0*"sv, OpenTiff},
                {"II+\0"sv, OpenTiff},  // more than 4 GiB
                {"MM\0+"sv, OpenTiff}};

}  // namespace

bool CImageStack::ReadSection(int iZ, std::span<float> fPixels)
{
    if (iZ < 0 || iZ >= m_iSections || fPixels.size() != m_aSize.GetPixels())
        return mFail("no section " + std::to_string(iZ + 1) + " of " +
                     std::to_string(fPixels.size()) + " pixels");
    return mRead(iZ, fPixels) && mCheckFinite(iZ, 0, fPixels);
}

bool CImageStack::ReadRows(int iZ, int iY, std::span<float> fPixels)
{
    const auto tX = std::size_t(m_aSize.iX), tRows = fPixels.size() / tX;
    if (iZ < 0 || iZ >= m_iSections || fPixels.size() % tX != 0 || iY < 0 ||
        tRows > std::size_t(m_aSize.iY) || std::size_t(iY) > std::size_t(m_aSize.iY) - tRows)
        return mFail("no " + std::to_string(tRows) + " rows from row " + std::to_string(iY + 1) +
                     " of section " + std::to_string(iZ + 1));
    return mReadRows(iZ, iY, fPixels) && mCheckFinite(iZ, iY, fPixels);
}

bool CImageStack::mReadRows(int iZ, int iY, std::span<float> fPixels)
{
    std::vector<float> vfWhole(m_aSize.GetPixels());
    if (!mRead(iZ, vfWhole)) return false;
    const auto pFirst = vfWhole.begin() + std::ptrdiff_t(iY) * m_aSize.iX;
    std::copy_n(pFirst, fPixels.size(), fPixels.begin());
    return true;
}

bool CImageStack::ReadAngles(std::vector<float>& rAngles)
{
    rAngles.clear();
    return true;
}

bool CImageStack::OpenFrames(EFrames, std::unique_ptr<CImageStack>& rFrames)
{
    rFrames.reset();
    return true;
}

bool CImageStack::mSetSize(std::uint64_t ulX, std::uint64_t ulY, std::uint64_t ulSections)
{
    if (std::min({ulX, ulY, ulSections}) < 1 || std::max({ulX, ulY, ulSections}) > g_ulMaxExtent)
        return mFail("no size of a stack: " + std::to_string(ulX) + " x " + std::to_string(ulY) +
                     " x " + std::to_string(ulSections));
    m_aSize = {static_cast<int>(ulX), static_cast<int>(ulY)};
    m_iSections = static_cast<int>(ulSections);
    return true;
}

void CImageStack::mTurnRows(std::span<float> fPixels) const
{
    const auto tX = std::size_t(m_aSize.iX);
    for (std::size_t tLow = 0, tHigh = fPixels.size() - tX; tLow < tHigh; tLow += tX, tHigh -= tX)
        std::ranges::swap_ranges(fPixels.subspan(tLow, tX), fPixels.subspan(tHigh, tX));
}

bool CImageStack::mCheckFinite(int iZ, int iY, std::span<const float> fPixels)
{
    // All exponent bits set: infinite or not a number. As integers, so that the loop is vectorised.
    constexpr std::uint32_t uiExponentBits = 0x7F800000;
    std::uint32_t uiBad = 0;
    for (const float fPixel : fPixels)
        uiBad |= (std::bit_cast<std::uint32_t>(fPixel) & uiExponentBits) == uiExponentBits;
    if (uiBad == 0) return true;
    for (std::size_t i = 0; i < fPixels.size(); ++i)
        if (!std::isfinite(fPixels[i]))
            return mFail("section " + std::to_string(iZ + 1) + ", column " +
                         std::to_string(i % std::size_t(m_aSize.iX) + 1) + ", row " +
                         std::to_string(std::size_t(iY) + i / std::size_t(m_aSize.iX) + 1) +
                         " is not a finite number");
    return true;
}

bool CImageStack::mFail(const std::string& strWhat)
{
    m_strError = m_strPath + ": " + strWhat;
    return false;
}

std::unique_ptr<CImageStack> OpenStack(const std::string& strPath, std::string& rError)
{
    std::error_code aError;
    if (std::filesystem::is_directory(strPath, aError)) return OpenTiffFolder(strPath, rError);
    std::array<char, 8> acBegin{};
    std::ifstream(strPath, std::ios::binary).read(acBegin.data(), acBegin.size());
    const std::string_view strBegin(acBegin.data(), acBegin.size());
    for (const auto& rKind : g_aKinds)
        if (strBegin.starts_with(rKind.strBytes)) return rKind.Open(strPath, rError);
    return OpenMrc(strPath, rError);
}

}  // namespace talven
