#pragma once

#include <memory>
#include <vector>

class Util_Volume;

/// Cuts a volume into pieces along X and puts them back.
///
/// Each piece has a core of its own, the last one takes what is left over, and carries up to
/// iOverlap columns of its neighbours on either side, as many as the volume has there.
class CSplitVolumeX
{
public:
    /// Makes the table of pieces. The volume is borrowed until the last piece is put back.
    void DoIt(Util_Volume* pVolume, int iNumSplits, int iOverlap);
    int GetNumSplits() const { return static_cast<int>(m_vPieces.size()); }
    int GetStartX(int n) const { return m_vPieces[n].iStart; }        ///< first column of the core
    int GetSizeX(int n) const { return m_vPieces[n].iSize; }          ///< columns of the core
    int GetOverlapLeft(int n) const { return m_vPieces[n].iLeft; }    ///< columns before it
    int GetOverlapRight(int n) const { return m_vPieces[n].iRight; }  ///< columns behind it

    /// A copy of piece n with its overlaps; null when there is no such piece or it has no core.
    std::unique_ptr<Util_Volume> GetNthSplit(int n) const;
    /// Writes the core of a piece, as GetNthSplit() gave it, into the volume.
    void AssembleNthSplit(const Util_Volume& rPiece, int n);

private:
    struct Piece
    {
        int iStart, iSize, iLeft, iRight;
    };
    Util_Volume* m_pVolume = nullptr;
    std::vector<Piece> m_vPieces;
};
