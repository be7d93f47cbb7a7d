#include "talven/ImageJob.h"

#include <algorithm>

#include "talven/SectionMaps.h"

namespace talven
{
namespace
{

/// Mean of the pixels that are not missing; 0 for none.
double CalcMean(std::span<const float> fPixels)
{
    double dSum = 0;
    double dCount = 0;
    for (const float fPixel : fPixels)
        if (!IsMissing(fPixel))
        {
            dSum += fPixel;
            ++dCount;
        }
    return dCount > 0 ? dSum / dCount : 0;
}

}  // namespace

bool CImageJob::Open(const ImageSize& rMeasured, const ImageSize& rAligned)
{
    m_aAligned = rAligned;
    const float fNoTilt = 0;
    return mServer(mGetSession().SetStackSize(rAligned.iX, rAligned.iY, std::span(&fNoTilt, 1)) &&
                   mGetSession().SetMeasuredSize(rMeasured.iX, rMeasured.iY, 1));
}

bool CImageJob::Transform(std::span<const float> fMeasured, const Affine& rMap,
                          const IntensityScale& rScale, std::vector<float>& rAligned)
{
    const auto Take = [&rAligned](int, std::span<const float> fPixels)
    {
        rAligned.assign(fPixels.begin(), fPixels.end());
        return true;
    };
    return mServer(mGetSession().SetMeasured(0, fMeasured) &&
                   mGetSession().Transform(0, 0, rMap, rScale) &&
                   mGetSession().GetProjections(1, m_aAligned.GetPixels(), Take));
}

bool CImageJob::Load(std::span<const float> fMeasured, std::span<const float> fAligned,
                     const IntensityScale& rScale)
{
    const double dMean = CalcMean(fAligned);
    m_dOffset = dMean;
    m_aScale = TakeOff(rScale, m_dOffset);
    std::vector<float> vfAligned(fAligned.begin(), fAligned.end());
    for (float& rPixel : vfAligned)
        rPixel = static_cast<float>((IsMissing(rPixel) ? dMean : double(rPixel)) - m_dOffset);
    std::vector<float> vfMeasured(fMeasured.begin(), fMeasured.end());
    const auto fMeasuredMean = static_cast<float>(CalcMean(vfMeasured));
    std::replace_if(vfMeasured.begin(), vfMeasured.end(), IsMissing, fMeasuredMean);
    return mServer(mGetSession().SetProjection(0, vfAligned) &&
                   mGetSession().SetMeasured(0, vfMeasured));
}

bool CImageJob::mCompareAt(const Affine& rMap, CompareSums& rSums)
{
    return mGoOn() && mServer(mGetSession().Compare(0, 0, rMap, m_aScale, rSums));
}

bool CImageJob::Compare(const std::string& strName, const ShiftedMap& rMap, int iRange,
                        ShiftMatch& rMatch)
{
    rMatch = ShiftMatch{};
    if (iRange == 0)
    {
        if (!mCompareAt(rMap(0, 0), rMatch.aSums)) return false;
        rMatch.dCorrelation = CalcCorrelation(rMatch.aSums);
        return true;
    }
    const CPhase aPhase(mGetMonitor(), strName);
    CShiftSearch aSearch(iRange, 0.25 * double(m_aAligned.GetPixels()),
                         [&](double dX, double dY, CompareSums& rSums)
                         { return mCompareAt(rMap(dX, dY), rSums); });
    const CShiftSearch::EResult eResult = aSearch.Run(rMatch);
    if (eResult == CShiftSearch::EResult::eNothing)
        return mFail(
            strName +
            ": no shift leaves a quarter of it to compare, or one of the images is constant");
    return eResult == CShiftSearch::EResult::eFound;  // else the server has said why
}

}  // namespace talven
