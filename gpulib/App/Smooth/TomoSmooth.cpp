#include "gpulib/App/Smooth/TomoSmooth.h"

#include <algorithm>

#include "Util/Util_Volume.h"
#include "gpulib/App/Smooth/TomoSmoothImpl.h"

CTomoSmooth::CTomoSmooth() = default;
CTomoSmooth::~CTomoSmooth() = default;

void CTomoSmooth::SetDeviceInfo(int iNumDevices, int iDeviceID, int iThreadID)
{
    m_iNumDevices = iNumDevices;
    m_iDeviceID = iDeviceID;
    m_iThreadID = iThreadID;
}

bool CTomoSmooth::DoIt()
{
    m_pSplitVol.reset();
    if (!m_pKernel || !m_pKernel->GetData() || !m_pVolume) return true;
    m_aSplitVolumeX.DoIt(m_pVolume, m_iNumDevices, m_pKernel->GetSizeX() / 2);
    std::unique_ptr<Util_Volume> pPiece = m_aSplitVolumeX.GetNthSplit(m_iThreadID);
    if (!pPiece) return true;  // more workers than columns
    CTomoSmoothImpl aImpl;
    if (!aImpl.DoIt(*pPiece, *m_pKernel, m_iDeviceID)) return false;
    m_pSplitVol = std::move(pPiece);
    return true;
}

void CTomoSmooth::Assemble()
{
    if (m_pSplitVol) m_aSplitVolumeX.AssembleNthSplit(*m_pSplitVol, m_iThreadID);
    m_pSplitVol.reset();
}

std::size_t CTomoSmooth::GetBytes(const int* piVolSize, int iKernelX, int iWorkers, int iDeviceID)
{
    // The copy of a piece, its image on the device and the result. Cut further, a piece has
    // beside it at most the smoothed copies of all of its parts.
    constexpr std::size_t tWholeCopies = 3, tCutCopies = 5;
    const std::size_t tX = piVolSize[0], tOverlap = iKernelX / 2;
    const std::size_t tColumn = std::size_t(piVolSize[1]) * piVolSize[2];
    const std::size_t tWorkers = std::max(iWorkers, 1);
    const std::size_t tWidest = tX / tWorkers + tX % tWorkers;
    const std::size_t tPiece = std::min(tX, tWidest + 2 * tOverlap);
    const bool bCut = CTomoSmoothImpl::CalcNumSplits(tPiece * tColumn, iDeviceID) > 1;
    const std::size_t tColumns = std::min(tX * tWorkers, tX + 2 * tOverlap * (tWorkers - 1));
    return tColumns * tColumn * sizeof(float) * (bCut ? tCutCopies : tWholeCopies);
}
