#include "talven/MrcReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstring>

#include "Half.h"

namespace talven
{
namespace
{

template <class T>
T Swapped(T tValue)
{
    if constexpr (sizeof(T) == 2)
        return std::bit_cast<T>(__builtin_bswap16(std::bit_cast<std::uint16_t>(tValue)));
    else if constexpr (sizeof(T) == 4)
        return std::bit_cast<T>(__builtin_bswap32(std::bit_cast<std::uint32_t>(tValue)));
    else
        return tValue;
}

/// Stored pixels of type T to floats, through Convert(T).
template <class T, class F>
void ConvertAll(const std::byte* pcStored, bool bSwap, std::span<float> fPixels, F Convert)
{
    for (std::size_t i = 0; i < fPixels.size(); ++i)
    {
        T tValue;
        std::memcpy(&tValue, pcStored + i * sizeof(T), sizeof(T));
        fPixels[i] = Convert(bSwap ? Swapped(tValue) : tValue);
    }
}

}  // namespace

CMrcReader::~CMrcReader()
{
    if (m_iFile != -1) close(m_iFile);
}

bool CMrcReader::Open(const std::string& strPath)
{
    if (m_iFile != -1) close(m_iFile);
    m_strPath = strPath;
    m_iSections = 0;
    m_iFile = open(strPath.c_str(), O_RDONLY | O_CLOEXEC);
    if (m_iFile == -1) return mFail(std::string("cannot read: ") + std::strerror(errno));
    struct stat aStat
    {
    };
    if (fstat(m_iFile, &aStat) != 0 || !S_ISREG(aStat.st_mode)) return mFail("not a regular file");

    const auto ulFileBytes = static_cast<std::uint64_t>(aStat.st_size);
    std::array<std::byte, MrcHeader::m_tBytes> acBytes;
    if (ulFileBytes < acBytes.size()) return mFail("not an MRC file (shorter than its header)");
    if (!mReadAt(0, acBytes)) return false;
    std::string strError;
    const std::optional<MrcHeader> aHeader = MrcHeader::Parse(acBytes, strError);
    if (!aHeader) return mFail(strError);
    m_aHeader = *aHeader;

    // Extents are at most 2^24 each: a section fits into 64 bits with room for its pixel size, the
    // whole file need not.
    const std::uint64_t ulSection =
        m_aHeader.GetSectionPixels() * static_cast<std::uint64_t>(m_aHeader.GetPixelBytes());
    const std::uint64_t ulAfterHeader =
        ulFileBytes - std::min(ulFileBytes, m_aHeader.GetDataOffset());
    if (ulAfterHeader / ulSection < static_cast<std::uint64_t>(m_aHeader.iZ))
        return mFail("truncated: " + std::to_string(m_aHeader.iX) + " x " +
                     std::to_string(m_aHeader.iY) + " x " + std::to_string(m_aHeader.iZ) +
                     " pixels in the header, but the file ends in section " +
                     std::to_string(ulAfterHeader / ulSection + 1));
    m_aSize = {m_aHeader.iX, m_aHeader.iY};
    m_iSections = m_aHeader.iZ;
    m_dPixel = m_aHeader.dPixel;
    return true;
}

bool CMrcReader::mReadRows(int iZ, int iY, std::span<float> fPixels)
{
    const auto tPixelBytes = static_cast<std::size_t>(m_aHeader.GetPixelBytes());
    const std::size_t tBytes = fPixels.size() * tPixelBytes;
    const std::uint64_t ulPixels = std::uint64_t(iZ) * m_aHeader.GetSectionPixels() +
                                   std::uint64_t(iY) * std::uint64_t(m_aHeader.iX);
    const std::uint64_t ulOffset = m_aHeader.GetDataOffset() + ulPixels * tPixelBytes;

    if (m_aHeader.eMode == EMrcMode::eFloat32)
    {
        if (!mReadAt(ulOffset, std::as_writable_bytes(fPixels))) return false;
        if (m_aHeader.bSwap)
            for (float& rPixel : fPixels) rPixel = Swapped(rPixel);
        return true;
    }
    m_vcStored.resize(tBytes);
    if (!mReadAt(ulOffset, m_vcStored)) return false;
    mConvert(fPixels);
    return true;
}

void CMrcReader::mConvert(std::span<float> fPixels) const
{
    const auto ToFloat = [](auto tValue) { return static_cast<float>(tValue); };
    const std::byte* pcStored = m_vcStored.data();
    const bool bSwap = m_aHeader.bSwap;
    if (m_aHeader.eMode == EMrcMode::eInt16)
        ConvertAll<std::int16_t>(pcStored, bSwap, fPixels, ToFloat);
    else if (m_aHeader.eMode == EMrcMode::eUint16)
        ConvertAll<std::uint16_t>(pcStored, bSwap, fPixels, ToFloat);
    else if (m_aHeader.eMode == EMrcMode::eFloat16)
        ConvertAll<std::uint16_t>(pcStored, bSwap, fPixels, HalfToFloat);
    else if (m_aHeader.bUnsigned)
        ConvertAll<std::uint8_t>(pcStored, false, fPixels, ToFloat);
    else
        ConvertAll<std::int8_t>(pcStored, false, fPixels, ToFloat);
}

bool CMrcReader::mReadAt(std::uint64_t ulOffset, std::span<std::byte> pBytes)
{
    while (!pBytes.empty())
    {
        const ssize_t iRead =
            pread(m_iFile, pBytes.data(), pBytes.size(), static_cast<off_t>(ulOffset));
        if (iRead < 0 && errno == EINTR) continue;
        if (iRead < 0) return mFail(std::string("cannot read: ") + std::strerror(errno));
        if (iRead == 0) return mFail("truncated while it was read");
        ulOffset += static_cast<std::uint64_t>(iRead);
        pBytes = pBytes.subspan(static_cast<std::size_t>(iRead));
    }
    return true;
}

}  // namespace talven
