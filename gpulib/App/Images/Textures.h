#pragma once

#include <span>

#include "gpulib/Device/DeviceArray2D.h"
#include "gpulib/Device/PitchedPtr2D.h"

// What the kernels of a job read on one device. Batch images hold the rows of one batch, tables
// are the same for all rows.

/// Base of the images: owns one array.
class CTexture
{
public:
    void ClearDevice() { m_aArray.Free(); }
    const DeviceImage& GetImage() const { return m_aArray.GetImage(); }

protected:
    CDeviceArray2D m_aArray;
};

/// Table of (cos, sin) of the tilt angles; element i belongs to projection i.
class CAnglesTexture : public CTexture
{
public:
    [[nodiscard]] bool Create(int iProjs);
    /// \param fAngles  degrees, one per projection
    [[nodiscard]] bool SetData(std::span<const float> fAngles);
};

/// The projections that take part in a job: element p is the raw number at list position p.
class CProjIndexTex : public CTexture
{
public:
    [[nodiscard]] bool Create(std::span<const unsigned int> uiIndices);
};

/// Valid detector columns of every row of a band: element (j, n) is (first, one past last) of
/// projection n at detector row iStartY + j.
class CRangeTexture : public CTexture
{
public:
    [[nodiscard]] bool Create(int iSizeY, int iProjs);
    /// \param uiRangeX  pairs of the whole stack, shape [proj][row][2]
    /// \param iProjY    rows of the stack
    /// \param iStartY   first row of the band
    [[nodiscard]] bool SetData(std::span<const unsigned int> uiRangeX, int iProjY, int iStartY);
};

/// Table with one value per detector column and projection, shape [proj][x].
class CWeightTexture : public CTexture
{
public:
    [[nodiscard]] bool Create(int iSizeX, int iProjs) { return m_aArray.Create(iSizeX, iProjs); }
    [[nodiscard]] bool SetData(std::span<const float> fWeights)
    {
        return m_aArray.HostToDevice(fWeights.data());
    }
};
/// Path length through the whole cross-section over that through the weight box.
class CPreweightTex : public CWeightTexture
{
};
/// Inverse path length through the whole cross-section.
class CProjweightTex : public CWeightTexture
{
};

/// Where a job keeps the measured rows of a batch.
enum class EMeasured
{
    eWorking,  ///< in the working rows: it never needs both at once
    eImage,    ///< in an image of their own
    eStack     ///< where they are: in the stack, or in a short-lived image where that cannot be
};

/// Measured and working projections of a batch of detector rows, each of shape [proj][x].
///
/// The measured rows come from the stack; the working rows are what the back projection reads.
class CProjsTexture : public CTexture
{
public:
    /// \param iLanes  rows of a batch
    [[nodiscard]] bool Create(int iSizeX, int iProjs, int iLanes, EMeasured eMeasured);
    /// Loads the measured rows: image row n from projection n, lanes from detector rows. With
    /// eStack they are lent until the next ones come, or the end, and hold anything meanwhile.
    [[nodiscard]] bool SetRawData(const HostRows<float>& rRows);
    void ClearDevice();
    const DeviceImage& GetRawImage() const
    {
        return m_eMeasured == EMeasured::eWorking ? GetImage() : m_aRaw.GetImage();
    }

private:
    EMeasured m_eMeasured = EMeasured::eWorking;
    CDeviceArray2D m_aRaw;
};

/// X-Z slices of the volume for a batch of rows, each inside a frame of one zero texel.
///
/// Voxel (x, z) stands at texel (x + 1, z + 1). The frame is never written, so a bilinear sample
/// near the edge blends with zeros. The back projection updates the slices in place.
class CVolTexture : public CTexture
{
public:
    [[nodiscard]] bool Create(int iSizeX, int iSizeZ, int iLanes);
    /// Loads the slices: image row z from slice z of the volume, lanes from its Y rows.
    [[nodiscard]] bool SetData(const HostRows<const float>& rRows);
    [[nodiscard]] bool SetZero();
    /// As SetData(), but the slices leave the volume: rRows holds anything until StartMoveOut().
    [[nodiscard]] bool MoveIn(const HostRows<float>& rRows);
    /// The reverse; only the rows that rRows has are written, by CBackend::FinishDownload() at the
    /// latest.
    [[nodiscard]] bool StartMoveOut(const HostRows<float>& rRows);

private:
    int m_iSizeX = 0, m_iSizeZ = 0;
};

/// A measured projection, shape [y][x]; the pixels are borrowed until ClearDevice().
class CMProjTex : public CTexture
{
public:
    [[nodiscard]] bool Create(const float* pfMProj, int iSizeX, int iSizeY)
    {
        return m_aArray.CreateLent(pfMProj, iSizeX, iSizeY);
    }
};

/// All images of one reconstruction or reprojection.
struct CTextures
{
    const DeviceImage& GetAnglesArray() const { return m_aAnglesTex.GetImage(); }
    const DeviceImage& GetProjsArray() const { return m_aProjsTex.GetImage(); }
    const DeviceImage& GetRawProjsArray() const { return m_aProjsTex.GetRawImage(); }
    const DeviceImage& GetRangeArray() const { return m_aRangeTex.GetImage(); }
    const DeviceImage& GetVolArray() const { return m_aVolTex.GetImage(); }
    const DeviceImage& GetPreWeightArray() const { return m_aPreweightTex.GetImage(); }
    const DeviceImage& GetProjWeightArray() const { return m_aProjweightTex.GetImage(); }
    const DeviceImage& GetProjIndexArray() const { return m_aProjIndexTex.GetImage(); }

    CAnglesTexture m_aAnglesTex;
    CProjsTexture m_aProjsTex;
    CRangeTexture m_aRangeTex;
    CVolTexture m_aVolTex;
    CPreweightTex m_aPreweightTex;
    CProjweightTex m_aProjweightTex;
    CProjIndexTex m_aProjIndexTex;
    CPitchedPtr2D m_aSums;  ///< ray sums of a batch [proj][x], row n belongs to raw number n
};
