#pragma once

#include "gpulib/Device/Backend.h"

/// Owner of one image in device memory; base of the kinds below it, which say how one is made.
///
/// Sizes are elements, not bytes. Channels, lanes and bytes survive Free() and take effect at the
/// next Create(). Used by one worker thread, on the device it selected. What returns false has
/// noted the reason (TakeDeviceError).
class CDeviceMemory
{
public:
    ~CDeviceMemory() { Free(); }
    CDeviceMemory(const CDeviceMemory&) = delete;
    CDeviceMemory& operator=(const CDeviceMemory&) = delete;

    void Free();
    bool IsEmpty() const { return !m_aImage.pvData; }
    const DeviceImage& GetImage() const { return m_aImage; }

    /// Fills a one-lane image from tightly packed host values: float, int or unsigned.
    [[nodiscard]] bool HostToDevice(const void* pvData)
    {
        return GetBackend()->UploadTable(m_aImage, pvData);
    }
    /// Fills the rectangle of iWidth x iHeight elements that begins at (iX0, iY0), for all lanes.
    [[nodiscard]] bool HostToDevice(const HostRows<const float>& rRows, int iX0, int iY0,
                                    int iWidth, int iHeight)
    {
        return GetBackend()->Upload(m_aImage, rRows, iX0, iY0, iWidth, iHeight);
    }
    /// The reverse.
    [[nodiscard]] bool ToHost(const HostRows<float>& rRows, int iX0, int iY0, int iWidth,
                              int iHeight) const
    {
        return GetBackend()->Download(m_aImage, rRows, iX0, iY0, iWidth, iHeight);
    }
    /// See CBackend.
    [[nodiscard]] bool MoveIn(const HostRows<float>& rRows, int iX0, int iY0, int iWidth,
                              int iHeight)
    {
        return GetBackend()->MoveIn(m_aImage, rRows, iX0, iY0, iWidth, iHeight);
    }
    [[nodiscard]] bool StartMoveOut(const HostRows<float>& rRows, int iX0, int iY0, int iWidth,
                                    int iHeight)
    {
        return GetBackend()->StartMoveOut(m_aImage, rRows, iX0, iY0, iWidth, iHeight);
    }
    /// Copies a whole image of the same sizes.
    [[nodiscard]] bool DeviceToDevice(const DeviceImage& rSource)
    {
        return GetBackend()->Copy(m_aImage, rSource);
    }

protected:
    explicit CDeviceMemory(const char* pcKind) : m_pcKind(pcKind) {}  ///< as failures call it
    /// Frees what is held and allocates anew, zero-filled.
    [[nodiscard]] bool mCreate(int iWidth, int iHeight, int iDepth);
    /// Frees what is held and makes a one-lane array of the values at pfData.
    [[nodiscard]] bool mCreateLent(const float* pfData, int iWidth, int iHeight);
    /// Frees what is held and makes an array of lent rows, see CBackend.
    [[nodiscard]] bool mCreateLentRows(const HostRows<float>& rRows, int iWidth, int iHeight);
    /// Frees what is held and makes a buffer beside an array, or in it.
    [[nodiscard]] bool mCreateShared(const DeviceImage& rArray);
    /// Tightly packed values of a one-lane image; nothing when it is empty.
    [[nodiscard]] bool mToHost(void* pvDest, int iBytes) const;

    DeviceImage m_aWanted;  // channels, lanes and bytes of the next one
    DeviceImage m_aImage;

private:
    template <class F>
    [[nodiscard]] bool mTake(int iWidth, int iHeight, int iDepth, F fCreate);
    const char* const m_pcKind;
};
