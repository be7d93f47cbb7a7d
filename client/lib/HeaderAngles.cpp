#include "talven/HeaderAngles.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "talven/MrcHeader.h"
#include "talven/Text.h"

namespace talven
{
namespace
{

/// Numbers of the file in its byte order. Reading past the end gives false.
class CNumbers
{
public:
    CNumbers(std::span<const std::byte> pBytes, bool bSwap) : m_pBytes(pBytes), m_bSwap(bSwap) {}

    template <class T>
    bool Get(std::uint64_t ulOffset, T& rValue) const
    {
        if (m_pBytes.size() < sizeof(T) || ulOffset > m_pBytes.size() - sizeof(T)) return false;
        std::byte ac[sizeof(T)];
        std::memcpy(ac, m_pBytes.data() + ulOffset, sizeof(T));
        if (m_bSwap) std::reverse(ac, ac + sizeof(T));
        std::memcpy(&rValue, ac, sizeof(T));
        return true;
    }

private:
    std::span<const std::byte> m_pBytes;
    bool m_bSwap;
};

/// How the records of the sections are laid out.
struct Layout
{
    enum class EAngle
    {
        eDouble,
        eFloat,
        eHundredths
    };
    std::uint64_t ulRecord = 0;  // bytes; 0: as each record says in its first word
    std::uint64_t ulAngle = 0;   // place of the angle in it
    EAngle eAngle = EAngle::eDouble;
};

/// Bytes of a SERI record by its flags; the first flag stands for the angle.
int CountSeriBytes(int iFlags)
{
    constexpr int aiBytes[] = {2, 6, 4, 2, 2, 4, 2, 4, 2, 4, 2};
    int iBytes = 0;
    for (std::size_t i = 0; i < std::size(aiBytes); ++i)
        if ((iFlags >> i & 1) != 0) iBytes += aiBytes[i];
    return iBytes;
}

bool ChooseLayout(const CNumbers& rNumbers, const std::string& strKind, Layout& rLayout,
                  std::string& rError)
{
    if (strKind == "FEI1" || strKind == "FEI2")
    {
        rLayout = {0, 100, Layout::EAngle::eDouble};
        return true;
    }
    std::int16_t sInts = 0, sReals = 0;  // NINT, NREAL: bytes and flags in SERI
    if (!rNumbers.Get(128, sInts) || !rNumbers.Get(130, sReals) || sInts < 0 || sReals < 0)
        return Fail(rError, "the extended header is of no known kind");
    const bool bNamed = strKind == "SERI", bFloats = strKind == "AGAR";
    if (bNamed || (!bFloats && sInts > 0 && sInts == CountSeriBytes(sReals)))
    {
        rLayout = {std::uint64_t(sInts), 0, Layout::EAngle::eHundredths};
        return (sInts >= 2 && (sReals & 1) != 0) ||
               Fail(rError, "the extended header has no tilt angles");
    }
    rLayout = {4 * (std::uint64_t(sInts) + std::uint64_t(sReals)), 4 * std::uint64_t(sInts),
               Layout::EAngle::eFloat};
    return sReals > 0 || Fail(rError, "the extended header is of no known kind");
}

bool GetAngle(const CNumbers& rNumbers, std::uint64_t ulOffset, Layout::EAngle eAngle,
              double& rAngle)
{
    if (eAngle == Layout::EAngle::eDouble) return rNumbers.Get(ulOffset, rAngle);
    if (eAngle == Layout::EAngle::eFloat)
    {
        float fAngle = 0;
        if (!rNumbers.Get(ulOffset, fAngle)) return false;
        rAngle = double(fAngle);
        return true;
    }
    std::int16_t sAngle = 0;
    if (!rNumbers.Get(ulOffset, sAngle)) return false;
    rAngle = sAngle / 100.0;
    return true;
}

}  // namespace

bool ParseHeaderAngles(std::span<const std::byte> pBytes, std::vector<float>& rAngles,
                       std::string& rError)
{
    constexpr std::size_t tHeader = MrcHeader::m_tBytes;
    if (pBytes.size() < tHeader) return Fail(rError, "not an MRC file (shorter than its header)");
    const auto aHeader = MrcHeader::Parse(pBytes.first<tHeader>(), rError);
    if (!aHeader) return false;
    if (aHeader->ulExtended == 0) return Fail(rError, "there is no extended header");
    const std::string strKind(reinterpret_cast<const char*>(pBytes.data()) + 104, 4);  // EXTTYP
    const CNumbers aNumbers(pBytes, aHeader->bSwap);
    Layout aLayout;
    if (!ChooseLayout(aNumbers, strKind, aLayout, rError)) return false;

    const std::uint64_t ulEnd =
        std::min(std::uint64_t(pBytes.size()), tHeader + aHeader->ulExtended);
    std::vector<float> vfAngles;
    std::uint64_t ulAt = tHeader;
    for (int i = 0; i < aHeader->iZ; ++i)
    {
        std::uint64_t ulRecord = aLayout.ulRecord;
        std::uint32_t uiOwn = 0;  // bytes of the record
        if (ulRecord == 0 && aNumbers.Get(ulAt, uiOwn)) ulRecord = uiOwn;
        double dAngle = 0;
        if (ulRecord < aLayout.ulAngle + 2 || ulAt > ulEnd || ulRecord > ulEnd - ulAt ||
            !GetAngle(aNumbers, ulAt + aLayout.ulAngle, aLayout.eAngle, dAngle))
            return Fail(rError, Format("the extended header ends before section %d", i + 1));
        if (!(std::fabs(dAngle) <= 360))
            return Fail(rError,
                        Format("the extended header has %g degrees for section %d", dAngle, i + 1));
        vfAngles.push_back(float(dAngle));
        ulAt += ulRecord;
    }
    if (vfAngles.size() > 1 && std::ranges::all_of(vfAngles, [](float f) { return f == 0; }))
        return Fail(rError, "the extended header has 0 degrees for all sections");
    rAngles = std::move(vfAngles);
    return true;
}

bool ReadHeaderAngles(const std::string& strPath, std::vector<float>& rAngles, std::string& rError)
{
    constexpr std::uint64_t ulMost = 1u << 28;  // of an extended header
    std::ifstream aFile;
    if (!OpenText(strPath, aFile, rError)) return false;
    std::string strBytes(MrcHeader::m_tBytes, '\0');
    aFile.read(strBytes.data(), std::streamsize(strBytes.size()));
    std::string strError = "not an MRC file";
    const auto aHeader =
        aFile ? MrcHeader::Parse(std::as_bytes(std::span(strBytes)).first<MrcHeader::m_tBytes>(),
                                 strError)
              : std::nullopt;
    if (!aHeader) return Fail(rError, strPath + ": " + strError);
    const auto tMore = std::size_t(std::min(aHeader->ulExtended, ulMost));
    strBytes.resize(MrcHeader::m_tBytes + tMore);
    aFile.read(strBytes.data() + MrcHeader::m_tBytes, std::streamsize(tMore));
    strBytes.resize(MrcHeader::m_tBytes + std::size_t(aFile.gcount()));
    return ParseHeaderAngles(std::as_bytes(std::span(strBytes)), rAngles, strError) ||
           Fail(rError, strPath + ": " + strError);
}

}  // namespace talven
