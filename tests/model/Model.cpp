#include "tests/model/Model.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>

namespace
{
constexpr std::uint64_t g_ulMostVoxels = 0x7fffffff;
constexpr std::uint64_t g_ulMostNumbers = 1 << 24;  // of a list or a table

std::uint64_t GetStackBytes(std::uint64_t ulX, std::uint64_t ulY, std::uint64_t ulN)
{
    return ulN * (4 * ulX * ulY + 8 * ulY + 8);  // with ranges, angles and defocus
}

/// Extents of at least 1, below 2^31 together.
bool IsSize(const Request& r)
{
    const std::uint64_t ulX = r.Field(4), ulY = r.Field(5), ulN = r.Field(6);
    return ulX > 0 && ulY > 0 && ulN > 0 && ulX * ulY <= g_ulMostVoxels &&
           ulX * ulY * ulN <= g_ulMostVoxels;
}

void Resize(const Request& r, Images& rImages)
{
    rImages.iX = int(r.Field(4));
    rImages.iY = int(r.Field(5));
    rImages.iN = int(r.Field(6));
    rImages.vf.resize(rImages.GetPixels() * std::size_t(rImages.iN));
}

/// The data, without its first words, from the start of an image on; the rest stays.
bool Upload(const Request& r, std::size_t tSkip, Images& rImages)
{
    if (r.Field(4) >= std::uint32_t(rImages.iN)) return false;
    const std::span<float> fImage = rImages.Nth(int(r.Field(4)));
    if (r.GetBytes() > 4 * tSkip + fImage.size_bytes()) return false;
    if (r.vuiData.size() < tSkip) return true;
    const std::size_t tWords = r.vuiData.size() - tSkip;
    std::memcpy(fImage.data(), r.vuiData.data() + tSkip, 4 * tWords);
    std::memcpy(fImage.data() + tWords, r.strTail.data(), r.strTail.size());
    return true;
}

bool Get(const Request& r, const Images& rImages, Expected& rExpected)
{
    if (r.Field(4) >= std::uint32_t(rImages.iN)) return false;
    const std::span<const float> fImage = rImages.Nth(int(r.Field(4)));
    rExpected.vuiData.resize(fImage.size());
    std::memcpy(rExpected.vuiData.data(), fImage.data(), fImage.size_bytes());
    return true;
}

std::vector<float> ToFloats(std::span<const std::uint32_t> uiWords)
{
    std::vector<float> vf(uiWords.size());
    std::memcpy(vf.data(), uiWords.data(), uiWords.size_bytes());
    return vf;
}
}  // namespace

Expected Model::Serve(const Request& rRequest)
{
    Expected aExpected;
    aExpected.pKind = FindKind(rRequest.uiType);
    aExpected.bDone = mServe(rRequest, aExpected);
    return aExpected;
}

void Model::EndClient(bool bCut)
{
    Model aNext;
    aNext.ulMemory = ulMemory;
    aNext.auiProp = auiProp;
    aNext.aBox = aBox;
    aNext.bBoxKnown = bBoxKnown && !bCut;
    if (!bCut) aNext.auiSums = auiSums;
    *this = std::move(aNext);
}

bool Model::mServe(const Request& r, Expected& rExpected)
{
    switch (r.uiType)
    {
    case Msg::eByteOrder:
        bSwap = r.Field(4) != 0x1234ABCD;
        return true;
    case Msg::eProjSize:
        return mProjSize(r);
    case Msg::eProjSet:
        return Upload(r, 2 * std::size_t(aStack.iY), aStack);
    case Msg::eProjGet:
        return Get(r, aStack, rExpected);
    case Msg::eVolSize:
        return mVolSize(r);
    case Msg::eVolSet:
        return r.Field(4) < 32768 && Upload(r, 0, aVolume);
    case Msg::eVolGet:
        return Get(r, aVolume, rExpected);
    case Msg::eMProjSize:
        return mMProjSize(r);
    case Msg::eMProjSet:
        return Upload(r, 0, aMeasured);
    case Msg::eSetOp:
        return mSetOp(r);
    case Msg::eReconOpt:
        return mReconOpt(r);
    case Msg::eWeightOpt:
        return mWeightOpt(r);
    case Msg::eSmoothOpt:
        return mSmoothOpt(r);
    case Msg::eReconStatGet:
        return mStat(r, rExpected);
    case Msg::eServerProp:
        if (auiProp) rExpected.vFields = {{6, (*auiProp)[0]}, {7, (*auiProp)[1]}};
        return true;
    case Msg::eCompReply:
        return mCompReply(rExpected);
    case Msg::eReconstruct:
    case Msg::eReproject:
        return mJob(r.uiType == Msg::eReproject, rExpected);
    case Msg::eTransform:
    case Msg::eTransforml:
        return mAlign(r, rExpected);
    case Msg::eCompare:
    case Msg::eComparel:
        return mCompare(r, rExpected);
    default:
        return true;
    }
}

std::uint64_t Model::mGetStackBytes() const
{
    return GetStackBytes(std::uint64_t(aStack.iX), std::uint64_t(aStack.iY),
                         std::uint64_t(aStack.iN));
}

bool Model::mFits(const Request& rSize, std::uint64_t ulBytes, std::uint64_t ulOld) const
{
    if (!IsSize(rSize)) return false;
    const std::uint64_t ulHeld =
        mGetStackBytes() + 4 * (std::uint64_t(aVolume.vf.size()) + aMeasured.vf.size());
    return ulMemory == 0 || ulBytes + ulHeld - ulOld <= ulMemory;
}

bool Model::mProjSize(const Request& r)
{
    const std::uint64_t ulN = r.Field(6);
    if (!mFits(r, GetStackBytes(r.Field(4), r.Field(5), ulN), mGetStackBytes()) ||
        r.GetBytes() > 8 * ulN)
        return false;
    aStack.vf.clear();
    Resize(r, aStack);
    vfAngles.assign(ulN, 0);
    for (std::size_t k = 0; k < r.vuiData.size() / 2; ++k)
        vfAngles[k] = std::bit_cast<float>(r.vuiData[2 * k]);
    vuiList.resize(ulN);
    std::iota(vuiList.begin(), vuiList.end(), 0U);
    return true;
}

bool Model::mVolSize(const Request& r)
{
    const std::uint64_t ulVoxels = std::uint64_t{r.Field(4)} * r.Field(5) * r.Field(6);
    if (!IsSize(r) ||
        (ulVoxels != aVolume.vf.size() && !mFits(r, 4 * ulVoxels, 4 * aVolume.vf.size())))
        return false;
    if (ulVoxels != aVolume.vf.size()) aVolume.vf.clear();  // else the samples stay
    Resize(r, aVolume);
    return true;
}

bool Model::mMProjSize(const Request& r)
{
    const std::uint64_t ulPixels = std::uint64_t{r.Field(4)} * r.Field(5) * r.Field(6);
    if (!mFits(r, 4 * ulPixels, 4 * aMeasured.vf.size())) return false;
    aMeasured.vf.clear();
    Resize(r, aMeasured);
    return true;
}

bool Model::mSetOp(const Request& r)
{
    if (r.Field(4) == 0) return true;
    const std::uint64_t ulCount = r.Field(5);
    if (ulCount > g_ulMostNumbers || r.GetBytes() != 4 * ulCount) return false;
    vuiList = r.vuiData;
    return true;
}

bool Model::mReconOpt(const Request& r)
{
    const std::uint64_t ulIterations = r.Field(5), ulSets = r.Field(6);
    if (r.Field(4) == 0)
    {
        eMethod = EMethod::eBackProj;
        uiIterations = uiSets = 1;
        vuiSetSize.clear();
        vfRelax.clear();
        return true;
    }
    if (ulSets > g_ulMostNumbers || ulSets + ulIterations * ulSets > g_ulMostNumbers ||
        r.GetBytes() != 4 * (ulSets + ulIterations * ulSets))
        return false;
    if (r.Field(4) <= 2) eMethod = r.Field(4) == 1 ? EMethod::eSart : EMethod::eEm;
    uiIterations = r.Field(5);
    uiSets = r.Field(6);
    vuiSetSize.assign(r.vuiData.begin(), r.vuiData.begin() + std::ptrdiff_t(ulSets));
    vfRelax = ToFloats(std::span(r.vuiData).subspan(ulSets));
    return true;
}

bool Model::mWeightOpt(const Request& r)
{
    aBox.reset();
    if (r.Field(4) != 0 || r.Field(5) != 0)
        aBox = {{r.FieldF(6), r.FieldF(7)}, {r.FieldF(8), r.FieldF(9)}};
    bBoxKnown = true;
    return true;
}

bool Model::mSmoothOpt(const Request& r)
{
    std::uint64_t ulVoxels = 1;
    for (std::size_t n = 5; n <= 7; ++n)
    {
        if (r.Field(n) > 255) return false;
        ulVoxels *= r.Field(n);
    }
    if (ulVoxels > 1 << 20 || r.GetBytes() > 4 * ulVoxels) return false;
    uiInterval = r.Field(4);
    aiKernel = {int(r.Field(5)), int(r.Field(6)), int(r.Field(7))};
    vfKernel = ToFloats(r.vuiData);
    vfKernel.resize(ulVoxels);
    if (!r.strTail.empty())
        std::memcpy(&vfKernel[r.vuiData.size()], r.strTail.data(), r.strTail.size());
    return true;
}

/// The number of an iteration has 16 bits.
bool Model::mStat(const Request& r, Expected& rExpected) const
{
    const auto sIteration = static_cast<std::int16_t>(r.Field(4));
    if (sIteration < 0 || std::size_t(sIteration) >= vvuiStat.size()) return false;
    rExpected.vuiData = vvuiStat[std::size_t(sIteration)];
    return true;
}

bool Model::mCompReply(Expected& rExpected) const
{
    for (int k = 0; auiSums && k < 8; ++k) rExpected.vFields.emplace_back(7 + k, (*auiSums)[k]);
    return true;
}

bool Model::mCompare(const Request& r, Expected& rExpected)
{
    auiSums.emplace().fill(0);
    rExpected.vFields = {{6, 0}};
    if (mAlign(r, rExpected)) return true;
    for (int n = 7; n <= 15; ++n) rExpected.vFields.emplace_back(n, 0);
    return false;
}

/// Whether a job of so many bytes beside the uploads may find no room.
bool Model::mIsUnsure(double dExtra) const
{
    return ulMemory != 0 && double(mGetStackBytes()) + 4.0 * double(aVolume.vf.size()) +
                                    4.0 * double(aMeasured.vf.size()) + dExtra >
                                double(ulMemory);
}

bool Model::mJob(bool bReproject, Expected& rExpected) const
{
    constexpr double dBatch = 4.0 * 32 * 2;  // bytes, rows, workers
    const double dRow = 8.0 * aStack.iX * aStack.iN + (aVolume.iX + 2.0) * (aVolume.iN + 2.0);
    const double dSums = 100.0 * double(vuiList.size()) * (1.0 + uiIterations);
    const double dPieces = 40.0 * double(aVolume.vf.size()) * (1 + aiKernel[0]);
    rExpected.bUnsure = mIsUnsure(2 * dBatch * dRow + dSums + dPieces);
    return FindObstacle(bReproject) == 0;
}

/// Words 4 and 5 are the images' indices, the matrix and the scale follow each other.
bool Model::mAlign(const Request& r, Expected& rExpected) const
{
    const bool bCompare = r.uiType == Msg::eCompare || r.uiType == Msg::eComparel;
    const bool bLog = r.uiType == Msg::eTransforml || r.uiType == Msg::eComparel;
    const std::size_t tFirst = bCompare ? 8 : 6, tValues = bLog ? 12 : 9;
    std::vector<float> vf;
    for (std::size_t n = tFirst; n < 16 && vf.size() < tValues; ++n) vf.push_back(r.FieldF(n));
    const std::size_t tMissing = tValues - vf.size();
    if (r.vuiData.size() < tMissing) return false;
    for (std::size_t k = 0; k < tMissing; ++k) vf.push_back(std::bit_cast<float>(r.vuiData[k]));

    constexpr float fInfinity = std::numeric_limits<float>::infinity();
    for (std::size_t k = 0; k < tValues; ++k)
    {
        const bool bNoLimit = (k == 8 && vf[k] == fInfinity) || (k == 9 && vf[k] == -fInfinity);
        if (!std::isfinite(vf[k]) && !bNoLimit) return false;
    }
    rExpected.bUnsure = mIsUnsure(16.0 * double(aMeasured.GetPixels() + 8 * aStack.GetPixels()));
    return r.Field(4) < std::uint32_t(aMeasured.iN) && r.Field(5) < std::uint32_t(aStack.iN);
}
