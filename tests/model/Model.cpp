#include "tests/model/Model.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace
{
constexpr std::uint64_t g_ulMostNumbers = 1 << 24;  // of a list or a table

/// Data from the start of an image on, the bytes behind the last whole word included.
void Store(const Request& r, std::size_t tSkip, std::span<float> fImage)
{
    if (r.vuiData.size() < tSkip) return;
    const auto aWords = std::as_bytes(std::span(r.vuiData).subspan(tSkip));
    const auto pEnd = std::ranges::copy(aWords, std::as_writable_bytes(fImage).begin()).out;
    std::ranges::copy(std::as_bytes(std::span(r.strTail)), pEnd);
}

/// Pixels, and what belongs to the projections of a stack.
std::uint64_t GetBytes(bool bStack, std::uint64_t ulX, std::uint64_t ulY, std::uint64_t ulN)
{
    return 4 * ulX * ulY * ulN + (bStack ? 8 * (ulY + 1) * ulN : 0);
}
}  // namespace

const Kind* FindKind(std::uint32_t uiType)
{
    static constexpr Kind aKinds[] = {
        {Msg::eByteOrder, "BYTEORDER", 0, &Model::mByteOrder},
        {Msg::eProjGet, "PROJGET", Msg::eDataReply, &Model::mGet},
        {Msg::eProjSet, "PROJSET", Msg::eCmdReply, &Model::mSet},
        {Msg::eProjSize, "PROJSIZE", Msg::eCmdReply, &Model::mSize},
        {Msg::eQuit, "QUIT", Msg::eQuit, &Model::mDone},
        {Msg::eReconstruct, "RECONSTRUCT", Msg::eCmdReply, &Model::mJob},
        {Msg::eReconStatGet, "RECONSTATGET", Msg::eDataReply, &Model::mStatGet},
        {Msg::eReproject, "REPROJECT", Msg::eCmdReply, &Model::mJob},
        {Msg::eServerProp, "SERVERPROP", Msg::eDataReply, &Model::mDone},
        {Msg::eVolGet, "VOLGET", Msg::eDataReply, &Model::mGet},
        {Msg::eVolSet, "VOLSET", Msg::eCmdReply, &Model::mSet},
        {Msg::eVolSize, "VOLSIZE", Msg::eCmdReply, &Model::mSize},
        {Msg::eSetOp, "SETOP", Msg::eCmdReply, &Model::mSetOp},
        {Msg::eReconOpt, "RECONOPT", Msg::eCmdReply, &Model::mReconOpt},
        {Msg::eMProjSet, "MPROJSET", Msg::eCmdReply, &Model::mSet},
        {Msg::eMProjSize, "MPROJSIZE", Msg::eCmdReply, &Model::mSize},
        {Msg::eTransform, "TRANSFORM", Msg::eCmdReply, &Model::mAlign},
        {Msg::eTransforml, "TRANSFORML", Msg::eCmdReply, &Model::mAlign},
        {Msg::eCompare, "COMPARE", Msg::eCompReply, &Model::mAlign},
        {Msg::eComparel, "COMPAREL", Msg::eCompReply, &Model::mAlign},
        {Msg::eCompReply, "COMPREPLY", Msg::eDataReply, &Model::mCompReply},
        {Msg::eWeightOpt, "WEIGHTOPT", Msg::eCmdReply, &Model::mWeightOpt},
        {Msg::eSmoothOpt, "SMOOTHOPT", Msg::eCmdReply, &Model::mSmoothOpt},
        {Msg::eInvalid, "INVALID", Msg::eQuit, &Model::mDone}};
    const auto pKind = std::ranges::find(aKinds, uiType, &Kind::uiType);
    return pKind != std::end(aKinds) ? pKind : nullptr;
}

bool IsJob(std::uint32_t uiType)
{
    return uiType == Msg::eReconstruct || uiType == Msg::eReproject ||
           (uiType >= Msg::eTransform && uiType <= Msg::eComparel);
}

std::string ToText(const Request& rRequest)
{
    const Kind* const pKind = FindKind(rRequest.uiType);
    std::string strText = pKind ? pKind->pcName : "type " + std::to_string(rRequest.uiType);
    for (const std::uint32_t uiField : rRequest.vuiFields) strText += ' ' + std::to_string(uiField);
    return strText + ", " + std::to_string(rRequest.GetBytes()) + " bytes";
}

Expected Model::Serve(const Request& rRequest)
{
    Expected aExpected;
    const Kind* const pKind = FindKind(rRequest.uiType);
    if (pKind) aExpected.bDone = (this->*pKind->pServe)(rRequest, aExpected);
    if (pKind && pKind->uiReply != 0) aExpected.pKind = pKind;
    return aExpected;
}

void Model::EndClient(bool bCut)
{
    Model aNext;
    aNext.ulMemory = ulMemory;
    aNext.aBox = aBox;
    aNext.bBoxKnown = bBoxKnown && !bCut;
    if (!bCut) aNext.auiSums = auiSums;
    *this = std::move(aNext);
}

bool Model::mByteOrder(const Request& r, Expected&)
{
    bSwap = r.Field(4) != 0x1234ABCD;
    return true;
}

const Images& Model::GetImages(std::uint32_t uiType) const
{
    if (uiType >= Msg::eProjGet && uiType <= Msg::eProjSize) return aStack;
    return uiType == Msg::eMProjSet || uiType == Msg::eMProjSize ? aMeasured : aVolume;
}

bool Model::mSize(const Request& r, Expected&)
{
    Images& rImages = mImages(r.uiType);
    const bool bStack = &rImages == &aStack;
    const std::uint64_t ulX = r.Field(4), ulY = r.Field(5), ulN = r.Field(6);
    if (ulX == 0 || ulY == 0 || ulN == 0 || ulX * ulY >> 31 != 0 || ulX * ulY * ulN >> 31 != 0)
        return false;
    const bool bStays = &rImages == &aVolume && ulX * ulY * ulN == aVolume.vf.size();
    std::uint64_t ulBytes = GetBytes(bStack, ulX, ulY, ulN);
    for (const Images* p : {&aStack, &aVolume, &aMeasured})
        if (p != &rImages) ulBytes += GetBytes(p == &aStack, p->iX, p->iY, p->iN);
    if (!bStays && ulMemory > 0 && ulBytes > ulMemory) return false;
    if (bStack && r.GetBytes() > 8 * ulN) return false;

    std::vector<float> vfOld = std::move(rImages.vf);
    rImages = Images(int(ulX), int(ulY), int(ulN));
    if (bStays) rImages.vf = std::move(vfOld);
    if (!bStack) return true;
    vfAngles.assign(ulN, 0);
    for (std::size_t k = 0; k < r.vuiData.size() / 2; ++k)
        vfAngles[k] = std::bit_cast<float>(r.vuiData[2 * k]);
    vuiList.resize(ulN);
    std::iota(vuiList.begin(), vuiList.end(), 0U);
    return true;
}

bool Model::mSet(const Request& r, Expected&)
{
    Images& rImages = mImages(r.uiType);
    if (r.Field(4) >= std::uint32_t(rImages.iN)) return false;
    if (r.uiType == Msg::eVolSet && r.Field(4) > 32767) return false;
    const std::size_t tSkip = r.uiType == Msg::eProjSet ? 2 * std::size_t(rImages.iY) : 0;
    if (r.GetBytes() > 4 * (tSkip + rImages.GetPixels())) return false;
    Store(r, tSkip, rImages.Nth(int(r.Field(4))));
    return true;
}

bool Model::mGet(const Request& r, Expected& rExpected)
{
    const Images& rImages = GetImages(r.uiType);
    if (r.Field(4) >= std::uint32_t(rImages.iN)) return false;
    const std::span<const float> fImage = rImages.Nth(int(r.Field(4)));
    for (const float fPixel : fImage) rExpected.vuiData.push_back(Bits(fPixel));
    return true;
}

bool Model::mSetOp(const Request& r, Expected&)
{
    if (r.Field(4) == 0) return true;
    if (r.Field(5) > g_ulMostNumbers || r.GetBytes() != 4 * std::uint64_t{r.Field(5)}) return false;
    vuiList = r.vuiData;
    return true;
}

bool Model::mReconOpt(const Request& r, Expected&)
{
    const bool bIterates = r.Field(4) != 0;
    const std::uint64_t ulIterations = bIterates ? r.Field(5) : 1;
    const std::uint64_t ulSets = bIterates ? r.Field(6) : 1;
    const std::uint64_t ulNumbers = ulSets * (1 + ulIterations);
    if (bIterates &&
        (ulSets > g_ulMostNumbers || ulNumbers > g_ulMostNumbers || r.GetBytes() != 4 * ulNumbers))
        return false;
    if (r.Field(4) <= 2) eMethod = EMethod(r.Field(4));
    uiIterations = std::uint32_t(ulIterations);
    uiSets = std::uint32_t(ulSets);
    vuiSetSize.clear();
    vfRelax.clear();
    for (std::size_t k = 0; bIterates && k < r.vuiData.size(); ++k)
        if (k < ulSets)
            vuiSetSize.push_back(r.vuiData[k]);
        else
            vfRelax.push_back(std::bit_cast<float>(r.vuiData[k]));
    return true;
}

bool Model::mWeightOpt(const Request& r, Expected&)
{
    aBox.reset();
    if (r.Field(4) != 0 || r.Field(5) != 0)
        aBox = {{r.FieldF(6), r.FieldF(7)}, {r.FieldF(8), r.FieldF(9)}};
    bBoxKnown = true;
    return true;
}

bool Model::mSmoothOpt(const Request& r, Expected&)
{
    const std::uint64_t ulX = r.Field(5), ulY = r.Field(6), ulZ = r.Field(7);
    const std::uint64_t ulVoxels = ulX * ulY * ulZ;
    if (std::max({ulX, ulY, ulZ}) > 255 || ulVoxels > 1 << 20 || r.GetBytes() > 4 * ulVoxels)
        return false;
    uiInterval = r.Field(4);
    aKernel = Images(int(ulX), int(ulY), int(ulZ));
    Store(r, 0, aKernel.vf);
    return true;
}

/// The number of an iteration has 16 bits.
bool Model::mStatGet(const Request& r, Expected& rExpected)
{
    const auto sIteration = static_cast<std::int16_t>(r.Field(4));
    if (sIteration < 0 || std::size_t(sIteration) >= vvfStat.size()) return false;
    rExpected.vuiData = ToWords(vvfStat[std::size_t(sIteration)]);
    return true;
}

bool Model::mCompReply(const Request&, Expected& rExpected)
{
    for (int k = 0; auiSums && k < 8; ++k) rExpected.vFields.emplace_back(7 + k, (*auiSums)[k]);
    return true;
}

bool Model::mJob(const Request& r, Expected&)
{
    return FindObstacle(r.uiType, false) == 0;
}

bool Model::mAlign(const Request& r, Expected& rExpected)
{
    const std::optional<OracleAlign> aAlign = ReadAlign(r);
    bool bDone =
        aAlign && r.Field(4) < std::uint32_t(aMeasured.iN) && r.Field(5) < std::uint32_t(aStack.iN);
    const auto IsFinite = [](float f) { return std::isfinite(f); };
    if (aAlign)
    {
        std::array<float, 6> afScale = aAlign->afScale;
        if (afScale[2] == HUGE_VALF) afScale[2] = 0;   // no upper limit
        if (afScale[3] == -HUGE_VALF) afScale[3] = 0;  // nor a floor
        bDone = bDone && std::ranges::all_of(aAlign->afMatrix, IsFinite) &&
                std::ranges::all_of(afScale, IsFinite);
    }
    if (r.uiType < Msg::eCompare) return bDone;
    for (int n = 6; n <= (bDone ? 6 : 15); ++n) rExpected.vFields.emplace_back(n, 0);
    return bDone;
}
