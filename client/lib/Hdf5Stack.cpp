#include "Hdf5Stack.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "StackFormats.h"
#include "talven/Text.h"

namespace talven
{
namespace
{

constexpr const char* g_pcTheta = "/exchange/theta";

/// Keeps the library from printing its errors, as long as it lives.
class CQuiet
{
public:
    CQuiet()
    {
        H5Eget_auto2(H5E_DEFAULT, &m_pPrint, &m_pData);
        H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
    }
    ~CQuiet() { H5Eset_auto2(H5E_DEFAULT, m_pPrint, m_pData); }
    CQuiet(const CQuiet&) = delete;
    CQuiet& operator=(const CQuiet&) = delete;

private:
    H5E_auto2_t m_pPrint = nullptr;
    void* m_pData = nullptr;
};

/// Why the last call of the library failed, as far down as it knows.
std::string Explain()
{
    const auto Take = [](unsigned, const H5E_error2_t* pEntry, void* pText) -> herr_t
    {
        if (pEntry->desc != nullptr) *static_cast<std::string*>(pText) = pEntry->desc;
        return 0;
    };
    std::string strText;
    H5Ewalk2(H5E_DEFAULT, H5E_WALK_DOWNWARD, Take, &strText);
    if (strText.empty()) return "the HDF5 library does not say why";
    for (char& rc : strText)
        if (rc < ' ' || rc > '~') rc = '?';
    return strText.substr(0, 200);
}

/// The extents of a dataset of at most three axes; nothing for one that has other ones.
std::vector<hsize_t> GetExtents(const CHdf5Id& rDataset)
{
    const CHdf5Id aSpace(H5Dget_space(rDataset.Get()), H5Sclose);
    const int iRank = aSpace ? H5Sget_simple_extent_ndims(aSpace.Get()) : 0;
    if (iRank < 1 || iRank > 3) return {};
    std::vector<hsize_t> vulExtents(static_cast<std::size_t>(iRank));
    if (H5Sget_simple_extent_dims(aSpace.Get(), vulExtents.data(), nullptr) != iRank) return {};
    return vulExtents;
}

bool IsReal(const CHdf5Id& rDataset)
{
    const CHdf5Id aType(H5Dget_type(rDataset.Get()), H5Tclose);
    const H5T_class_t eClass = aType ? H5Tget_class(aType.Get()) : H5T_NO_CLASS;
    return eClass == H5T_INTEGER || eClass == H5T_FLOAT;
}

}  // namespace

bool CHdf5Stack::Open(const std::string& strPath, const char* pcDataset)
{
    const CQuiet aQuiet;
    m_strPath = strPath;
    m_aFile = CHdf5Id(H5Fopen(strPath.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT), H5Fclose);
    if (!m_aFile) return mFailHere("cannot read this HDF5 file");
    if (!mHas(pcDataset))
        return mFail(std::string("an HDF5 file without ") + pcDataset +
                     ", where Data Exchange has the images");
    if (!mOpenDataset(pcDataset, m_aDataset)) return false;
    const std::vector<hsize_t> vul = GetExtents(m_aDataset);
    m_bOne = vul.size() == 2;
    if (vul.size() < 2 || !IsReal(m_aDataset))
        return mFail(std::string(pcDataset) + " is no stack of images, [angle][y][x] of numbers");
    return mSetSize(vul.back(), vul[vul.size() - 2], m_bOne ? 1 : vul[0]) && mMakeCache(pcDataset);
}

bool CHdf5Stack::mHas(const char* pcDataset) const
{
    return H5Lexists(m_aFile.Get(), "/exchange", H5P_DEFAULT) > 0 &&
           H5Lexists(m_aFile.Get(), pcDataset, H5P_DEFAULT) > 0;
}

bool CHdf5Stack::mOpenDataset(const char* pcDataset, CHdf5Id& rDataset)
{
    rDataset = CHdf5Id(H5Dopen2(m_aFile.Get(), pcDataset, H5P_DEFAULT), H5Dclose);
    return rDataset || mFailHere(std::string("cannot open ") + pcDataset);
}

/// Chunks that hold several images are read and unpacked once, not once for each of their images.
bool CHdf5Stack::mMakeCache(const char* pcDataset)
{
    constexpr std::uint64_t ulMostBytes = 512 << 20;
    constexpr std::size_t tSlots = 10007;  // a prime
    const CHdf5Id aPlan(H5Dget_create_plist(m_aDataset.Get()), H5Pclose);
    const CHdf5Id aType(H5Dget_type(m_aDataset.Get()), H5Tclose);
    std::array<hsize_t, 3> aulChunk{};
    if (m_bOne || !aPlan || !aType || H5Pget_layout(aPlan.Get()) != H5D_CHUNKED ||
        H5Pget_chunk(aPlan.Get(), 3, aulChunk.data()) != 3 || std::ranges::min(aulChunk) < 1 ||
        std::ranges::max(aulChunk) > ulMostBytes)
        return true;
    const auto GetCovered = [](int iExtent, hsize_t ulChunk)  // whole chunks along an edge
    { return (std::uint64_t(iExtent) + ulChunk - 1) / ulChunk * ulChunk; };
    const std::uint64_t ulLayer =
        GetCovered(m_aSize.iX, aulChunk[2]) * GetCovered(m_aSize.iY, aulChunk[1]);
    const std::uint64_t ulBytes = std::uint64_t(H5Tget_size(aType.Get())) * aulChunk[0];
    if (ulLayer > ulMostBytes / ulBytes) return true;
    const CHdf5Id aAccess(H5Pcreate(H5P_DATASET_ACCESS), H5Pclose);
    H5Pset_chunk_cache(aAccess.Get(), tSlots, std::max<std::size_t>(ulLayer * ulBytes, 1 << 20), 1);
    m_aDataset = CHdf5Id();
    m_aDataset = CHdf5Id(H5Dopen2(m_aFile.Get(), pcDataset, aAccess.Get()), H5Dclose);
    return m_aDataset || mFailHere(std::string("cannot open ") + pcDataset);
}

bool CHdf5Stack::mRead(int iZ, std::span<float> fPixels)
{
    const CQuiet aQuiet;
    const hsize_t aulFirst[] = {hsize_t(iZ), 0, 0};
    const hsize_t aulCount[] = {1, hsize_t(m_aSize.iY), hsize_t(m_aSize.iX)};
    const std::size_t tSkip = m_bOne ? 1 : 0;
    const CHdf5Id aImage(H5Screate_simple(2, aulCount + 1, nullptr), H5Sclose);
    const CHdf5Id aSpace(H5Dget_space(m_aDataset.Get()), H5Sclose);
    if (H5Sselect_hyperslab(aSpace.Get(), H5S_SELECT_SET, aulFirst + tSkip, nullptr,
                            aulCount + tSkip, nullptr) < 0 ||
        H5Dread(m_aDataset.Get(), H5T_NATIVE_FLOAT, aImage.Get(), aSpace.Get(), H5P_DEFAULT,
                fPixels.data()) < 0)
        return mFailHere(Format("cannot read image %d", iZ + 1));
    mTurnRows(fPixels);
    return true;
}

bool CHdf5Stack::ReadAngles(std::vector<float>& rAngles)
{
    const CQuiet aQuiet;
    rAngles.clear();
    if (!mHas(g_pcTheta)) return true;
    CHdf5Id aTheta;
    if (!mOpenDataset(g_pcTheta, aTheta)) return false;
    const std::vector<hsize_t> vul = GetExtents(aTheta);
    if (vul.size() != 1 || vul[0] != hsize_t(m_iSections) || !IsReal(aTheta))
        return mFail(
            Format("%s does not hold %d angles, one for each image", g_pcTheta, m_iSections));
    std::vector<double> vdAngles(vul[0]);
    if (H5Dread(aTheta.Get(), H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, vdAngles.data()) <
        0)
        return mFailHere(std::string("cannot read ") + g_pcTheta);
    if (mIsInRadians())
        return mFail(std::string(g_pcTheta) +
                     " is in radians; angles are in degrees (multiply by 57.2958)");
    for (const double dAngle : vdAngles)
    {
        if (!std::isfinite(dAngle) || std::fabs(dAngle) > 1e6)
            return mFail(Format("%s: %g is no angle in degrees", g_pcTheta, dAngle));
        // More than one turn, as of a stage that goes on and on.
        rAngles.push_back(float(std::fabs(dAngle) > 360 ? std::remainder(dAngle, 360.0) : dAngle));
    }
    return true;
}

/// Whether the attribute with the unit of the angles says so.
bool CHdf5Stack::mIsInRadians() const
{
    const CHdf5Id aUnits(
        H5Aopen_by_name(m_aFile.Get(), g_pcTheta, "units", H5P_DEFAULT, H5P_DEFAULT), H5Aclose);
    if (!aUnits) return false;
    const CHdf5Id aType(H5Aget_type(aUnits.Get()), H5Tclose);
    const CHdf5Id aSpace(H5Aget_space(aUnits.Get()), H5Sclose);
    if (!aType || !aSpace || H5Tget_class(aType.Get()) != H5T_STRING ||
        H5Sget_simple_extent_npoints(aSpace.Get()) != 1)
        return false;
    std::string strUnits;
    if (H5Tis_variable_str(aType.Get()) > 0)
    {
        char* pcText = nullptr;
        if (H5Aread(aUnits.Get(), aType.Get(), &pcText) >= 0 && pcText != nullptr)
            strUnits = pcText;
        H5free_memory(pcText);
    }
    else if (H5Tget_size(aType.Get()) <= 1000)
    {
        strUnits.resize(H5Tget_size(aType.Get()));
        if (H5Aread(aUnits.Get(), aType.Get(), strUnits.data()) < 0) return false;
    }
    for (char& rc : strUnits) rc = static_cast<char>(rc | 0x20);
    return strUnits.starts_with("rad");
}

bool CHdf5Stack::OpenFrames(EFrames eFrames, std::unique_ptr<CImageStack>& rFrames)
{
    const CQuiet aQuiet;
    rFrames.reset();
    const char* pcDataset =
        eFrames == EFrames::eFlat ? "/exchange/data_white" : "/exchange/data_dark";
    if (!mHas(pcDataset)) return true;
    auto pFrames = std::make_unique<CHdf5Stack>();
    if (!pFrames->Open(m_strPath, pcDataset)) return mFailAs(*pFrames);
    rFrames = std::move(pFrames);
    return true;
}

bool CHdf5Stack::mFailHere(const std::string& strWhat)
{
    return mFail(strWhat + ": " + Explain());
}

std::unique_ptr<CImageStack> OpenHdf5(const std::string& strPath, std::string& rError)
{
    auto pStack = std::make_unique<CHdf5Stack>();
    if (pStack->Open(strPath)) return pStack;
    rError = pStack->GetError();
    return nullptr;
}

}  // namespace talven
