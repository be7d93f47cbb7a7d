#include "talven/FlatField.h"

#include <algorithm>
#include <cmath>

#include "Gaps.h"
#include "talven/Text.h"

namespace talven
{
namespace
{

bool ReadMean(CImageStack* pFrames, const ImageSize& rSize, double dNone,
              std::vector<double>& rMean, std::string& rError)
{
    rMean.assign(rSize.GetPixels(), pFrames == nullptr ? dNone : 0);
    if (pFrames == nullptr) return true;
    const ImageSize& rOwn = pFrames->GetSize();
    if (rOwn.iX != rSize.iX || rOwn.iY != rSize.iY)
        return Fail(rError,
                    Format("%s: frames of %d x %d, but the views have %d x %d",
                           pFrames->GetPath().c_str(), rOwn.iX, rOwn.iY, rSize.iX, rSize.iY));
    std::vector<float> vfFrame(rSize.GetPixels());
    for (int i = 0; i < pFrames->GetSections(); ++i)
    {
        if (!pFrames->ReadSection(i, vfFrame)) return Fail(rError, pFrames->GetError());
        for (std::size_t t = 0; t < vfFrame.size(); ++t) rMean[t] += double(vfFrame[t]);
    }
    for (double& rd : rMean) rd /= pFrames->GetSections();
    return true;
}

double FindMedian(std::vector<double> vd)
{
    const auto pMiddle = vd.begin() + std::ptrdiff_t(vd.size() / 2);
    std::nth_element(vd.begin(), pMiddle, vd.end());
    return *pMiddle;
}

}  // namespace

bool CFlatField::Make(CImageStack* pFlat, CImageStack* pDark, bool bMinusLog,
                      const ImageSize& rSize, std::string& rError)
{
    m_bMinusLog = bMinusLog;
    m_tX = static_cast<std::size_t>(rSize.iX);
    m_vfDark.clear();
    m_vfGain.clear();
    if (pFlat == nullptr && pDark == nullptr) return true;
    std::vector<double> vdFlat, vdDark;
    if (!ReadMean(pDark, rSize, 0, vdDark, rError)) return false;
    if (pFlat != nullptr && !ReadMean(pFlat, rSize, 0, vdFlat, rError)) return false;
    for (std::size_t t = 0; t < vdDark.size() && !vdFlat.empty(); ++t) vdFlat[t] -= vdDark[t];
    const double dLeast = vdFlat.empty() ? 0 : m_dLeastBeam * FindMedian(vdFlat);
    for (std::size_t t = 0; t < vdDark.size(); ++t)
    {
        const double dBeam = vdFlat.empty() ? 1 : vdFlat[t];
        const auto fGain = static_cast<float>(1 / dBeam);
        const auto fDark = static_cast<float>(vdDark[t]);
        const bool bDead =
            !(dBeam > std::max(0.0, dLeast)) || !std::isfinite(fGain) || IsMissing(fDark);
        m_vfDark.push_back(fDark);
        m_vfGain.push_back(bDead ? 0 : fGain);
    }
    return true;
}

void CFlatField::Correct(std::span<float> fView) const
{
    for (std::size_t t = 0; t < fView.size() && !IsNone(); ++t)
    {
        float& rf = fView[t];
        if (IsMissing(rf)) continue;
        if (!m_vfGain.empty()) rf = m_vfGain[t] > 0 ? (rf - m_vfDark[t]) * m_vfGain[t] : g_fMissing;
        if (!std::isfinite(rf) || IsMissing(rf))
            rf = g_fMissing;
        else if (m_bMinusLog)
            rf = -std::log(std::max(rf, m_fLeast));
    }
    for (std::size_t t = 0; t < m_vfGain.size(); t += m_tX)
        mBridge(fView.subspan(t, m_tX), std::span(m_vfGain).subspan(t, m_tX));
}

/// Gives the dead pixels of a row values.
void CFlatField::mBridge(std::span<float> fRow, std::span<const float> fGains)
{
    if (std::ranges::find(fGains, 0.0f) == fGains.end()) return;
    std::vector<float> vfFilled(fRow.begin(), fRow.end());
    if (!FillGaps(vfFilled)) return;
    for (std::size_t t = 0; t < fRow.size(); ++t)
        if (fGains[t] == 0) fRow[t] = vfFilled[t];
}

ImageSource CFlatField::Correct(ImageSource Views) const
{
    return [this, Views = std::move(Views)](int i, std::span<float> fView, std::string& rError)
    {
        if (!Views(i, fView, rError)) return false;
        Correct(fView);
        return true;
    };
}

}  // namespace talven
