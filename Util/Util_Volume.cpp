#include "Util/Util_Volume.h"

#include <algorithm>
#include <cstring>
#include <new>

bool Util_Volume::FitsVoxelLimit(long long iSizeX, long long iSizeY, long long iSizeZ)
{
    constexpr long long iLimit = 1LL << 31;
    if (iSizeX < 0 || iSizeY < 0 || iSizeZ < 0) return false;
    if (iSizeX >= iLimit || iSizeY >= iLimit || iSizeZ >= iLimit) return false;
    const long long iSlice = iSizeX * iSizeY;
    return iSlice == 0 || iSizeZ <= (iLimit - 1) / iSlice;
}

void Util_Volume::SetSize(int iSizeX, int iSizeY, int iSizeZ)
{
    const std::size_t tOld = GetVoxels();
    m_iSize[0] = iSizeX;
    m_iSize[1] = iSizeY;
    m_iSize[2] = iSizeZ;
    if (GetVoxels() == tOld) return;
    mFree();
    mAllocate();
}

std::size_t Util_Volume::GetVoxels() const
{
    return static_cast<std::size_t>(m_iSize[0]) * m_iSize[1] * m_iSize[2];
}

/// Big volumes begin at a page: mostly, rows that lie one after the other are then whole pages,
/// which can be given back while the rows stand elsewhere.
void Util_Volume::mAllocate()
{
    constexpr std::size_t tPage = 4096, tBig = std::size_t{1} << 20;  // bytes
    const std::size_t tBytes = GetVoxels() * sizeof(float);
    if (tBytes == 0) return;
    const std::size_t tSpare = tBytes < tBig ? 0 : tPage;
    m_pfBlock.reset(static_cast<float*>(std::calloc(tBytes + tSpare, 1)));
    if (!m_pfBlock)
    {
        std::fill_n(m_iSize, 3, 0);
        throw std::bad_alloc();
    }
    void* pvFirst = m_pfBlock.get();
    std::size_t tRoom = tBytes + tSpare;
    if (tSpare > 0) std::align(tPage, tBytes, pvFirst, tRoom);
    m_pfData = static_cast<float*>(pvFirst);
}

void Util_Volume::mFree()
{
    m_pfData = nullptr;
    m_pfBlock.reset();
}

void Util_Volume::SetZero()
{
    if (m_pfData) std::memset(m_pfData, 0, GetVoxels() * sizeof(float));
}

void Util_Volume::DeleteVolume()
{
    mFree();
    std::fill_n(m_iSize, 3, 0);
}

void Util_Volume::Copy(const Util_Volume& rVolume)
{
    std::copy_n(rVolume.m_iSize, 3, m_iSize);
    if (rVolume.m_pfData && m_pfData)
        std::memcpy(m_pfData, rVolume.m_pfData, GetVoxels() * sizeof(float));
}

std::vector<float> Util_Volume::GetLineX(int iY, int iZ) const
{
    if (!m_pfData) return {};
    const float* pfLine = GetSliceXY(iZ) + static_cast<std::size_t>(m_iSize[0]) * iY;
    return std::vector<float>(pfLine, pfLine + m_iSize[0]);
}

std::vector<float> Util_Volume::GetLineY(int iX, int iZ) const
{
    if (!m_pfData) return {};
    std::vector<float> vfLine(m_iSize[1]);
    const float* pfLine = GetSliceXY(iZ) + iX;
    for (int y = 0; y < m_iSize[1]; ++y)
        vfLine[y] = pfLine[static_cast<std::size_t>(m_iSize[0]) * y];
    return vfLine;
}

std::vector<float> Util_Volume::GetLineZ(int iX, int iY) const
{
    if (!m_pfData) return {};
    std::vector<float> vfLine(m_iSize[2]);
    const std::size_t tPixel = static_cast<std::size_t>(m_iSize[0]) * iY + iX;
    for (int z = 0; z < m_iSize[2]; ++z) vfLine[z] = GetSliceXY(z)[tPixel];
    return vfLine;
}

void Util_Volume::SetLineX(const float* pfData, int iY, int iZ)
{
    if (!m_pfData) return;
    std::copy_n(pfData, m_iSize[0], GetSliceXY(iZ) + static_cast<std::size_t>(m_iSize[0]) * iY);
}

void Util_Volume::SetLineY(const float* pfData, int iX, int iZ)
{
    if (!m_pfData) return;
    float* pfLine = GetSliceXY(iZ) + iX;
    for (int y = 0; y < m_iSize[1]; ++y)
        pfLine[static_cast<std::size_t>(m_iSize[0]) * y] = pfData[y];
}

void Util_Volume::SetLineZ(const float* pfData, int iX, int iY)
{
    if (!m_pfData) return;
    const std::size_t tPixel = static_cast<std::size_t>(m_iSize[0]) * iY + iX;
    for (int z = 0; z < m_iSize[2]; ++z) GetSliceXY(z)[tPixel] = pfData[z];
}

void Util_Volume::SetSliceXY(const float* pfData, int iZ)
{
    if (!m_pfData || pfData == nullptr) return;
    std::copy_n(pfData, static_cast<std::size_t>(m_iSize[0]) * m_iSize[1], GetSliceXY(iZ));
}

void Util_Volume::GetSliceXY(float* pfData, int iZ) const
{
    if (!m_pfData) return;
    std::copy_n(GetSliceXY(iZ), static_cast<std::size_t>(m_iSize[0]) * m_iSize[1], pfData);
}

float* Util_Volume::GetSliceXY(int iZ)
{
    if (!m_pfData) return nullptr;
    return m_pfData + static_cast<std::size_t>(m_iSize[0]) * m_iSize[1] * iZ;
}

const float* Util_Volume::GetSliceXY(int iZ) const
{
    return const_cast<Util_Volume*>(this)->GetSliceXY(iZ);
}

void Util_Volume::GetSliceXZ(float* pfData, int iY) const
{
    if (!m_pfData) return;
    const std::size_t tX = m_iSize[0];
    for (int z = 0; z < m_iSize[2]; ++z) std::copy_n(GetSliceXY(z) + tX * iY, tX, pfData + tX * z);
}

void Util_Volume::SetSliceXZ(const float* pfData, int iY)
{
    if (!m_pfData) return;
    const std::size_t tX = m_iSize[0];
    for (int z = 0; z < m_iSize[2]; ++z) std::copy_n(pfData + tX * z, tX, GetSliceXY(z) + tX * iY);
}

std::unique_ptr<Util_Volume> Util_Volume::GetSubVolumeX(int iStartX, int iSizeX) const
{
    auto pSub = std::make_unique<Util_Volume>();
    pSub->SetSize(iSizeX, m_iSize[1], m_iSize[2]);
    const int aiStart[3] = {iStartX, 0, 0};
    GetSubVolume(aiStart, *pSub);
    return pSub;
}

void Util_Volume::SetSubVolumeX(const Util_Volume& rVolume, int iStartX)
{
    const int aiStart[3] = {iStartX, 0, 0};
    SetSubVolume(aiStart, rVolume);
}

std::unique_ptr<Util_Volume> Util_Volume::GetSubVolumeY(int iStartY, int iSizeY) const
{
    auto pSub = std::make_unique<Util_Volume>();
    pSub->SetSize(m_iSize[0], iSizeY, m_iSize[2]);
    const int aiStart[3] = {0, iStartY, 0};
    GetSubVolume(aiStart, *pSub);
    return pSub;
}

void Util_Volume::SetSubVolumeY(const Util_Volume& rVolume, int iStartY)
{
    if (m_iSize[1] < iStartY + rVolume.m_iSize[1]) return;
    const int aiStart[3] = {0, iStartY, 0};
    SetSubVolume(aiStart, rVolume);
}

namespace
{
/// The part of a box that lies inside a volume.
struct ClippedBox
{
    int aiStart[3], aiEnd[3];  // in the volume
    int aiOffset[3];           // of the part inside the box

    ClippedBox(const int* piStart, const int* piBox, const int* piVolume)
    {
        for (int i = 0; i < 3; ++i)
        {
            aiStart[i] = std::max(piStart[i], 0);
            aiEnd[i] = std::min(piStart[i] + piBox[i], piVolume[i]);
            aiOffset[i] = aiStart[i] - piStart[i];
        }
    }

    /// Calls fnRow(y and z in the volume, y and z in the box, width) for every row.
    template <class Fn>
    void ForRows(Fn&& fnRow) const
    {
        const int iWidth = aiEnd[0] - aiStart[0];
        if (iWidth <= 0) return;
        for (int z = aiStart[2]; z < aiEnd[2]; ++z)
            for (int y = aiStart[1]; y < aiEnd[1]; ++y)
                fnRow(y, z, y - aiStart[1] + aiOffset[1], z - aiStart[2] + aiOffset[2], iWidth);
    }
};
}  // namespace

void Util_Volume::GetSubVolume(const int* piStart, Util_Volume& rSub) const
{
    if (!m_pfData || !rSub.m_pfData) return;
    const ClippedBox aBox(piStart, rSub.m_iSize, m_iSize);
    aBox.ForRows(
        [&](int y, int z, int iSubY, int iSubZ, int iWidth)
        {
            std::copy_n(GetSliceXY(z) + static_cast<std::size_t>(m_iSize[0]) * y + aBox.aiStart[0],
                        iWidth,
                        rSub.GetSliceXY(iSubZ) + static_cast<std::size_t>(rSub.m_iSize[0]) * iSubY +
                            aBox.aiOffset[0]);
        });
}

void Util_Volume::SetSubVolume(const int* piStart, const Util_Volume& rSub)
{
    if (!m_pfData || !rSub.m_pfData) return;
    const ClippedBox aBox(piStart, rSub.m_iSize, m_iSize);
    aBox.ForRows(
        [&](int y, int z, int iSubY, int iSubZ, int iWidth)
        {
            std::copy_n(rSub.GetSliceXY(iSubZ) + static_cast<std::size_t>(rSub.m_iSize[0]) * iSubY +
                            aBox.aiOffset[0],
                        iWidth,
                        GetSliceXY(z) + static_cast<std::size_t>(m_iSize[0]) * y + aBox.aiStart[0]);
        });
}
