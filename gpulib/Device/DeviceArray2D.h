#pragma once

#include "gpulib/Device/DeviceImage.h"

/// Owner of one 2-D array that kernels read: a table, or an image for a batch of rows, which
/// kernels also sample between its elements.
///
/// Sizes are elements, every channel is 32 bits wide. Kind, channels and lanes survive Free() and
/// take effect at the next Create(). Used by one worker thread, on the device it selected.
class CDeviceArray2D
{
public:
    CDeviceArray2D() = default;
    ~CDeviceArray2D() { Free(); }
    CDeviceArray2D(const CDeviceArray2D&) = delete;
    CDeviceArray2D& operator=(const CDeviceArray2D&) = delete;

    void SetInt() { m_eKind = EKind::eInt; }
    void SetUInt() { m_eKind = EKind::eUInt; }
    void SetFloat() { m_eKind = EKind::eFloat; }
    void SetChannels(int iChannels) { m_iChannels = iChannels; }
    void SetLanes(int iLanes) { m_iLanes = iLanes; }  ///< makes it an image; 0: a table

    /// Frees what is held and allocates anew, zero-filled. \return false with the reason noted
    [[nodiscard]] bool Create(int iWidth, int iHeight);

    /// Frees what is held and makes a one-lane array of the values at pfData, for kernels to read.
    /// They are borrowed until Free().
    [[nodiscard]] bool CreateLent(const float* pfData, int iWidth, int iHeight);

    /// Fills a one-lane array from tightly packed host values.
    [[nodiscard]] bool HostToDevice(const float* pfData);
    [[nodiscard]] bool HostToDevice(const int* piData);
    [[nodiscard]] bool HostToDevice(const unsigned int* puiData);
    /// Element i becomes the pair (a[i], b[i]); for arrays of two channels.
    [[nodiscard]] bool HostToDevice(const float* pfA, const float* pfB);
    [[nodiscard]] bool HostToDevice(const int* piA, const int* piB);
    [[nodiscard]] bool HostToDevice(const unsigned int* puiA, const unsigned int* puiB);
    /// Fills the rectangle of iWidth x iHeight elements that begins at (iX0, iY0), for all lanes.
    [[nodiscard]] bool HostToDevice(const HostRows<const float>& rRows, int iX0, int iY0,
                                    int iWidth, int iHeight);
    /// The reverse of the former.
    [[nodiscard]] bool ToHost(const HostRows<float>& rRows, int iX0, int iY0, int iWidth,
                              int iHeight) const;
    /// As ToHost(), but the values may arrive as late as in CBackend::FinishDownload().
    [[nodiscard]] bool StartToHost(const HostRows<float>& rRows, int iX0, int iY0, int iWidth,
                                   int iHeight) const;
    /// Copies a whole image of the same sizes.
    [[nodiscard]] bool DeviceToDevice(const DeviceImage& rSource);
    void Free();

    const DeviceImage& GetImage() const { return m_aImage; }
    bool IsEmpty() const { return m_aImage.iWidth == 0; }

private:
    enum class EKind
    {
        eInt,
        eUInt,
        eFloat
    };
    DeviceImage m_aImage;
    int m_iChannels = 1;
    int m_iLanes = 0;
    EKind m_eKind = EKind::eFloat;
};
