#include "gpulib/App/Smooth/SplitVolumeX.h"

#include <algorithm>

#include "Util/Util_Volume.h"

void CSplitVolumeX::DoIt(Util_Volume* pVolume, int iNumSplits, int iOverlap)
{
    m_pVolume = pVolume;
    m_vPieces.clear();
    if (iNumSplits < 1) return;
    const int iX = pVolume->GetSizeX(), iWidth = iX / iNumSplits;
    for (int n = 0; n < iNumSplits; ++n)
    {
        Piece aPiece;
        aPiece.iStart = n * iWidth;
        aPiece.iSize = n + 1 < iNumSplits ? iWidth : iX - aPiece.iStart;
        aPiece.iLeft = std::min(iOverlap, aPiece.iStart);
        aPiece.iRight = std::min(iOverlap, iX - aPiece.iStart - aPiece.iSize);
        m_vPieces.push_back(aPiece);
    }
}

std::unique_ptr<Util_Volume> CSplitVolumeX::GetNthSplit(int n) const
{
    if (n < 0 || n >= GetNumSplits() || m_vPieces[n].iSize == 0) return nullptr;
    const Piece& rPiece = m_vPieces[n];
    return m_pVolume->GetSubVolumeX(rPiece.iStart - rPiece.iLeft,
                                    rPiece.iLeft + rPiece.iSize + rPiece.iRight);
}

void CSplitVolumeX::AssembleNthSplit(const Util_Volume& rPiece, int n)
{
    if (GetNumSplits() == 1) return m_pVolume->SetSubVolumeX(rPiece, 0);
    // Only the core, row by row: a copy of it would take as much memory again.
    const std::size_t tWidth = rPiece.GetSizeX(), tVolume = m_pVolume->GetSizeX();
    const std::size_t tRows = std::size_t(rPiece.GetSizeY()) * rPiece.GetSizeZ();
    for (std::size_t t = 0; t < tRows; ++t)
        std::copy_n(rPiece.GetData() + t * tWidth + m_vPieces[n].iLeft, m_vPieces[n].iSize,
                    m_pVolume->GetData() + t * tVolume + m_vPieces[n].iStart);
}
