#include "SeriesFiles.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "Options.h"
#include "talven/Angles.h"
#include "talven/HeaderAngles.h"
#include "talven/Text.h"

namespace talven
{
namespace
{

bool ParseFiles(const std::string& strText, std::vector<std::string>& rFiles, std::string& rError)
{
    rFiles.clear();
    for (std::size_t tAt = 0; tAt <= strText.size();)
    {
        const std::size_t tEnd = std::min(strText.find(',', tAt), strText.size());
        rFiles.push_back(strText.substr(tAt, tEnd - tAt));
        tAt = tEnd + 1;
    }
    const bool bGood = rFiles.size() <= 2 && std::ranges::find(rFiles, "") == rFiles.end();
    return bGood || Fail(rError, "expected one file or two with a comma between them");
}

/// Many programs write 1 Angstrom where they know nothing.
bool IsKnown(double dPixel)
{
    return dPixel > 0 && dPixel != 1;
}

}  // namespace

void CSeriesFiles::AddOptions(CLI::App& rApp, bool bVolumes)
{
    m_pApp = &rApp;
    AddFile(rApp, "--angles", m_strAngles,
            "Tilt angles in degrees, one per line (.tlt) [those of the other files]");
    AddFile(rApp, "--mdoc", m_strMdoc,
            "Angles, tilt axis, pixel size and doses of the views (.mdoc)");
    if (!bVolumes) return;
    AddParsed(rApp, "--from", "FILE[,FILE]", m_vstrFrom, ParseFiles,
              "Take tilt.com, newst.com or both; options that are given win");
    rApp.add_flag(
        "--dose-weight", m_bDoseWeight,
        "Weigh the details of each view by what the dose up to it has left of them, by the "
        "doses of --mdoc");
}

bool CSeriesFiles::Read(CImageStack& rStack, const std::string& strXf, ReconRequest& rRequest)
{
    m_pStack = &rStack;
    return mReadFiles(strXf, rRequest) && mCheckPixel() && mTakeBin(rRequest) &&
           mTakeAxis(rRequest) && mTakeVolume(rRequest) && mTakeAngles() && mTakeViews(rRequest) &&
           (!m_bDoseWeight || mCheckDoses());
}

bool CSeriesFiles::mReadFiles(const std::string& strXf, ReconRequest& rRequest)
{
    for (const std::string& strPath : m_vstrFrom)
        if (!ReadCommands(strPath, m_aCommands, m_strError)) return false;
    if (!m_strMdoc.empty() && (!ReadMdoc(m_strMdoc, m_aMdoc, m_strError) ||
                               !FitToStack(m_aMdoc, m_pStack->GetSections(), m_aViews, m_strError)))
        return false;
    m_bRaw =
        !m_aCommands.aStack.strPath.empty() || !strXf.empty() || m_aCommands.aTilt.strPath.empty();
    const std::string& strMaps = strXf.empty() ? m_aCommands.aStack.strMaps : strXf;
    std::vector<ViewMap>& rMaps = rRequest.aAlign.aMaps;
    if (strMaps.empty()) return true;
    if (!ReadXf(strMaps, rMaps, m_strError)) return false;
    return !strXf.empty() || rMaps.size() == std::size_t(m_pStack->GetSections()) ||
           mFail(Format("%s has %zu maps, but %s has %d sections", strMaps.c_str(), rMaps.size(),
                        m_pStack->GetPath().c_str(), m_pStack->GetSections()));
}

bool CSeriesFiles::mCheckPixel()
{
    m_dPixel = m_pStack->GetPixel();
    if (!m_aMdoc.dPixel) return true;
    const int iBinned = m_bRaw ? 1 : std::max(1, m_aCommands.aTilt.iBinned);
    const double dPixel = *m_aMdoc.dPixel * iBinned;
    if (IsKnown(m_dPixel) && std::fabs(m_dPixel / dPixel - 1) > 0.02)
        return mFail(Format("%s has pixels of %g Angstrom, but %s of %g%s", m_strMdoc.c_str(),
                            *m_aMdoc.dPixel, m_pStack->GetPath().c_str(), m_dPixel,
                            iBinned > 1 ? Format(", binned by %d", iBinned).c_str() : ""));
    if (!IsKnown(m_dPixel)) m_dPixel = dPixel;
    return true;
}

bool CSeriesFiles::mTakeBin(ReconRequest& rRequest)
{
    const TiltCommands& rTilt = m_aCommands.aTilt;
    const StackCommands& rStack = m_aCommands.aStack;
    AlignRequest& rAlign = rRequest.aAlign;
    if (!rStack.strPath.empty() && rTilt.iBinned > 0 && rTilt.iBinned != rStack.iBin)
        return mFail(Format("%s has IMAGEBINNED %d, but %s has BinByFactor %d",
                            rTilt.strPath.c_str(), rTilt.iBinned, rStack.strPath.c_str(),
                            rStack.iBin));
    if (!mIsGiven("--bin"))
        rAlign.iBin = !rStack.strPath.empty() ? rStack.iBin
                      : m_bRaw                ? std::max(1, rTilt.iBinned)
                                              : 1;
    if (mIsGiven("--size") || rStack.strPath.empty()) return true;
    const ImageSize& rSize = rStack.aSize;  // of pixels of rStack.iBin x rStack.iBin raw ones
    const auto Scale = [&](int iExtent) { return iExtent * rStack.iBin / rAlign.iBin; };
    if (rSize.iX > 0)
        rAlign.aSize = {Scale(rSize.iX), Scale(rSize.iY)};
    else if (!rAlign.aMaps.empty())
        rAlign.aSize = {m_pStack->GetSize().iX / rAlign.iBin, m_pStack->GetSize().iY / rAlign.iBin};
    return true;
}

bool CSeriesFiles::mTakeAxis(ReconRequest& rRequest)
{
    if (m_strMdoc.empty() || !rRequest.aAlign.aMaps.empty() || !m_bRaw || mIsGiven("--tilt-axis") ||
        mIsGiven("--axis"))
        return true;
    if (m_aMdoc.dTiltAxis)
    {
        rRequest.aAlign.dTiltAxis = *m_aMdoc.dTiltAxis;
        mNote(Format("tilt axis at %g degrees, from %s", *m_aMdoc.dTiltAxis, m_strMdoc.c_str()));
    }
    return m_aMdoc.dTiltAxis || !m_aMdoc.bRotation ||
           mFail(m_strMdoc +
                 ": no title has a tilt axis angle, and RotationAngle may count from either axis; "
                 "give " +
                 (m_pApp->get_option_no_throw("--axis") ? "--axis"
                                                        : "--tilt-axis, 0 for aligned views"));
}

double CSeriesFiles::mGetUnit(const ReconRequest& rRequest) const
{
    const int iBinned = m_aCommands.aTilt.iBinned;
    const double dRaw = m_bRaw        ? (iBinned > 0 ? 1 : m_aCommands.aStack.iBin)
                        : iBinned > 0 ? 1.0 / iBinned
                                      : 1;
    return dRaw / rRequest.aAlign.iBin;
}

bool CSeriesFiles::mTakeVolume(ReconRequest& rRequest)
{
    const TiltCommands& rTilt = m_aCommands.aTilt;
    if (rTilt.strPath.empty()) return true;
    AlignRequest& rAlign = rRequest.aAlign;
    const double dUnit = mGetUnit(rRequest);
    const auto Voxels = [dUnit](double dLength)
    { return std::max(1, static_cast<int>(std::floor(dLength * dUnit + 1e-6))); };
    if (!mIsGiven("--thickness") && rTilt.dThickness > 0)
        rRequest.iThickness = Voxels(rTilt.dThickness);
    if (!mIsGiven("--width") && rTilt.dWidth > 0) rRequest.iWidth = Voxels(rTilt.dWidth);
    // The rows of a slice in the field's volumes run towards lower z.
    if (!mIsGiven("--shift-z")) rAlign.dShiftZ = -rTilt.adShift[1] * dUnit;
    rAlign.dAxisX = rTilt.adOffset[1] * dUnit;
    rAlign.dShiftX = rTilt.adShift[0] * dUnit + rAlign.dAxisX;
    if (!mIsGiven("--angle-offset")) rRequest.dAngleOffset = rTilt.adOffset[0];
    mTakeFilter(rRequest.aFilter);
    double dTiltX = 0;
    if (!rTilt.strXTilts.empty() && !ReadXTilt(rTilt.strXTilts, dTiltX, m_strError)) return false;
    dTiltX += rTilt.dTiltX;
    if (std::fabs(dTiltX) > 60)
        return mFail(Format("%s: XAXISTILT of %g degrees, more than 60 cannot be done",
                            rTilt.strPath.c_str(), dTiltX));
    if (!mIsGiven("--x-tilt")) rAlign.dTiltX = -dTiltX;  // along the rows, too
    const ImageSize aBinned = {m_pStack->GetSize().iX / rAlign.iBin,
                               m_pStack->GetSize().iY / rAlign.iBin};
    return mCheckSubset(rAlign.aSize.iX > 0 ? rAlign.aSize : aBinned, dUnit);
}

/// The tilt axis must go through the middle of the aligned views; halves of pixels may be lost
/// where extents were divided.
bool CSeriesFiles::mCheckSubset(const ImageSize& rAligned, double dUnit)
{
    const TiltCommands& rTilt = m_aCommands.aTilt;
    const bool bOther = m_bRaw && m_aCommands.aStack.strPath.empty();  // aligned by options
    if (!rTilt.adFull || bOther || mIsGiven("--size")) return true;
    const int aiExtents[] = {rAligned.iX, rAligned.iY};
    for (std::size_t i = 0; i < 2; ++i)
    {
        const double dFull = (*rTilt.adFull)[i], dStart = rTilt.adStart[i];
        const double dMiddle = (dFull / 2 - dStart) * dUnit;
        if (std::fabs(dMiddle - aiExtents[i] / 2.0) > 1)
            return mFail(
                Format("%s: FULLIMAGE %g and SUBSETSTART %g have their middle at pixel %g "
                       "of the aligned views along %c, but these are %d wide",
                       rTilt.strPath.c_str(), dFull, dStart, dMiddle, "XY"[i], aiExtents[i]));
    }
    return true;
}

void CSeriesFiles::mTakeFilter(FilterRequest& rFilter) const
{
    const TiltCommands& rTilt = m_aCommands.aTilt;
    if (rTilt.adRadial && !mIsGiven("--cutoff"))
    {
        const auto [dCutoff, dFall] = *rTilt.adRadial;
        rFilter.dCutoff = std::min(dCutoff, 0.5);
        // Otherwise the fall is exp(-(f / fall)^2).
        rFilter.dFalloff = rTilt.bTrueSigma ? dFall : dFall / std::numbers::sqrt2;
    }
    if (rTilt.bHamming && !mIsGiven("--filter")) rFilter.eWindow = EWindow::eHamming;
    if (rTilt.iSirtLike > 0 && !mIsGiven("--sirt-like")) rFilter.iSirtLike = rTilt.iSirtLike;
}

bool CSeriesFiles::mTakeAngles()
{
    const TiltCommands& rTilt = m_aCommands.aTilt;
    m_strAnglesFrom = m_strAngles.empty() ? rTilt.strAngles : m_strAngles;
    if (!m_strAnglesFrom.empty())
    {
        if (!ReadAngles(m_strAnglesFrom, m_vfAngles, m_strError)) return false;
    }
    else if (!rTilt.vfAngles.empty())
    {
        m_strAnglesFrom = rTilt.strPath;
        m_vfAngles = rTilt.vfAngles;
    }
    if (!m_strAnglesFrom.empty())
    {
        if (m_strAngles.empty()) mNote("angles from " + m_strAnglesFrom);
        return mCheckAngles();
    }
    if (!m_strMdoc.empty()) return mTakeMdocAngles();
    if (!m_pStack->ReadAngles(m_vfAngles)) return mFail(m_pStack->GetError());
    std::string strWhy;
    if (!m_vfAngles.empty())
        mNote("angles from " + m_pStack->GetPath());
    else if (ReadHeaderAngles(m_pStack->GetPath(), m_vfAngles, strWhy))
        mNote("angles from the extended header of " + m_pStack->GetPath());
    else
        return mFail("--angles is required where no other file has them; " + strWhy);
    return true;
}

bool CSeriesFiles::mTakeMdocAngles()
{
    mNote("angles from " + m_strMdoc);
    for (std::size_t i = 0; i < m_aViews.vfAngles.size(); ++i)
    {
        if (!m_aViews.vfAngles[i] &&
            !std::ranges::binary_search(m_aViews.viMissing, static_cast<int>(i)))
            return mFail(m_strMdoc + Format(": no TiltAngle for view %zu", i + 1));
        m_vfAngles.push_back(m_aViews.vfAngles[i].value_or(0));
    }
    return true;
}

/// Those of a file that lists them, beside the stack and the .mdoc.
bool CSeriesFiles::mCheckAngles()
{
    if (m_vfAngles.size() != std::size_t(m_pStack->GetSections()))
        return mFail(Format("%s has %zu angle%s, but %s has %d sections", m_strAnglesFrom.c_str(),
                            m_vfAngles.size(), m_vfAngles.size() == 1 ? "" : "s",
                            m_pStack->GetPath().c_str(), m_pStack->GetSections()));
    for (std::size_t i = 0; i < m_aViews.vfAngles.size(); ++i)
        if (m_aViews.vfAngles[i] && std::fabs(*m_aViews.vfAngles[i] - m_vfAngles[i]) > 5)
            return mFail(Format("view %zu is tilted by %g degrees in %s, but by %g in %s", i + 1,
                                double(m_vfAngles[i]), m_strAnglesFrom.c_str(),
                                double(*m_aViews.vfAngles[i]), m_strMdoc.c_str()));
    return true;
}

bool CSeriesFiles::mTakeViews(ReconRequest& rRequest)
{
    const TiltCommands& rTilt = m_aCommands.aTilt;
    if (!mIsGiven("--exclude") && !mIsGiven("--include"))
    {
        for (const std::vector<int>* pviListed : {&rTilt.viExclude, &rTilt.viInclude})
            if (!pviListed->empty() && pviListed->back() >= m_pStack->GetSections())
                return mFail(Format("%s lists view %d, but %s has %d sections",
                                    rTilt.strPath.c_str(), pviListed->back() + 1,
                                    m_pStack->GetPath().c_str(), m_pStack->GetSections()));
        rRequest.viInclude = rTilt.viInclude;
        LeaveOut(rTilt.viExclude, m_pStack->GetSections(), rRequest);
    }
    // A view of which a list of angles knows more than the .mdoc stays.
    if (!m_strAnglesFrom.empty() || m_aViews.viMissing.empty()) return true;
    LeaveOut(m_aViews.viMissing, m_pStack->GetSections(), rRequest);
    std::string strViews;
    for (const int iView : m_aViews.viMissing) strViews += Format(" %d", iView + 1);
    mNote("left out, not in " + m_strMdoc + ": view" + strViews);
    return true;
}

/// Without one of these the weights would be guessed.
bool CSeriesFiles::mCheckDoses()
{
    if (m_strMdoc.empty()) return mFail("--dose-weight takes the doses from --mdoc");
    if (GetDoses().empty())
        return mFail("--dose-weight: " + m_strMdoc +
                     " does not have the ExposureDose of every view");
    if (!IsKnown(m_dPixel) && !m_aMdoc.dPixel)
        return mFail("--dose-weight: neither " + m_strMdoc + " nor " + m_pStack->GetPath() +
                     " has the pixel size");
    double dMost = 0;
    for (const ViewDose& rDose : GetDoses())
        dMost = std::max(dMost, rDose.dPrior + rDose.dExposure);
    mNote(Format("weighed by dose, up to %g electrons per square Angstrom at %g kV", dMost,
                 GetVoltage()));
    return true;
}

bool CSeriesFiles::mIsGiven(const char* pcOption) const
{
    const CLI::Option* pOption = m_pApp->get_option_no_throw(pcOption);
    return pOption != nullptr && pOption->count() > 0;
}

void CSeriesFiles::mNote(const std::string& strNote)
{
    m_strNote += (m_strNote.empty() ? "" : "; ") + strNote;
}

bool CSeriesFiles::mFail(const std::string& strError)
{
    return Fail(m_strError, strError);
}

}  // namespace talven
