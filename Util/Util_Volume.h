#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <vector>

/// Three-dimensional single-precision data in host memory: X runs fastest, then Y, then Z.
///
/// A projection stack is a volume whose Z is the projection. No operation checks an index against
/// the extents. A volume has fewer than 2^31 voxels; callers check sizes first (FitsVoxelLimit).
/// An allocation that fails throws std::bad_alloc and leaves the volume empty.
class Util_Volume
{
public:
    Util_Volume() = default;
    Util_Volume(const Util_Volume&) = delete;
    Util_Volume& operator=(const Util_Volume&) = delete;

    /// True when no extent is negative and the product is below 2^31.
    static bool FitsVoxelLimit(long long iSizeX, long long iSizeY, long long iSizeZ);

    /// Keeps the samples when the voxel count stays the same, else starts with zeros.
    void SetSize(int iSizeX, int iSizeY, int iSizeZ);
    const int* GetSize() const { return m_iSize; }  ///< X, Y, Z; valid for the life of the object
    int GetSizeX() const { return m_iSize[0]; }
    int GetSizeY() const { return m_iSize[1]; }
    int GetSizeZ() const { return m_iSize[2]; }
    std::size_t GetVoxels() const;
    float* GetData() { return m_pfData; }  ///< null when there are no voxels
    const float* GetData() const { return m_pfData; }
    void SetZero();
    void DeleteVolume();
    /// Takes over sizes and samples; this volume must already hold at least as many voxels.
    void Copy(const Util_Volume& rVolume);

    // Lines; Get returns an empty vector, Set does nothing, when there is no data.
    std::vector<float> GetLineX(int iY, int iZ) const;
    std::vector<float> GetLineY(int iX, int iZ) const;
    std::vector<float> GetLineZ(int iX, int iY) const;
    void SetLineX(const float* pfData, int iY, int iZ);
    void SetLineY(const float* pfData, int iX, int iZ);
    void SetLineZ(const float* pfData, int iX, int iY);

    // Slices; X fastest in the caller's buffer.
    void SetSliceXY(const float* pfData, int iZ);
    void GetSliceXY(float* pfData, int iZ) const;
    /// The start of slice iZ in this volume's own block, null when there is no data.
    float* GetSliceXY(int iZ);
    const float* GetSliceXY(int iZ) const;
    void GetSliceXZ(float* pfData, int iY) const;
    void SetSliceXZ(const float* pfData, int iY);

    // Sub-volumes.
    std::unique_ptr<Util_Volume> GetSubVolumeX(int iStartX, int iSizeX) const;
    void SetSubVolumeX(const Util_Volume& rVolume, int iStartX);
    std::unique_ptr<Util_Volume> GetSubVolumeY(int iStartY, int iSizeY) const;
    /// Does nothing when rVolume does not fit below iStartY.
    void SetSubVolumeY(const Util_Volume& rVolume, int iStartY);
    /// Copies the box that begins at piStart (may lie partly outside) and has rSub's extents.
    void GetSubVolume(const int* piStart, Util_Volume& rSub) const;
    void SetSubVolume(const int* piStart, const Util_Volume& rSub);

private:
    struct Freer
    {
        void operator()(float* pfData) const { std::free(pfData); }
    };
    void mAllocate();
    void mFree();

    int m_iSize[3] = {0, 0, 0};
    std::unique_ptr<float[], Freer>
        m_pfBlock;              // calloc: untouched pages of a big volume cost nothing
    float* m_pfData = nullptr;  // in the block
};
