#pragma once

#include <vector>

#include "gpulib/Device/DeviceMemory.h"

/// A 2-D array that kernels read: a table, or an image for a batch of rows, which kernels also
/// sample between its elements. Every channel is 32 bits wide.
class CDeviceArray2D : public CDeviceMemory
{
public:
    CDeviceArray2D() : CDeviceMemory("array") {}

    // All values are 32 bits, whatever they mean.
    void SetInt() {}
    void SetUInt() {}
    void SetFloat() {}
    void SetChannels(int iChannels) { m_aWanted.iChannels = iChannels; }
    void SetLanes(int iLanes)  ///< makes it an image
    {
        m_aWanted.iLanes = iLanes;
        m_aWanted.bBatch = true;
    }

    [[nodiscard]] bool Create(int iWidth, int iHeight) { return mCreate(iWidth, iHeight, 1); }
    /// An array of the values at pfData, which are borrowed until Free().
    [[nodiscard]] bool CreateLent(const float* pfData, int iWidth, int iHeight)
    {
        return mCreateLent(pfData, iWidth, iHeight);
    }

    /// An image of rows that are lent until Free(), see CBackend.
    [[nodiscard]] bool CreateLentRows(const HostRows<float>& rRows, int iWidth, int iHeight)
    {
        return mCreateLentRows(rRows, iWidth, iHeight);
    }

    using CDeviceMemory::HostToDevice;
    /// Element i becomes the pair (a[i], b[i]); for arrays of two channels.
    template <class T>
    [[nodiscard]] bool HostToDevice(const T* pA, const T* pB)
    {
        std::vector<T> vPairs(GetImage().iChannels * std::size_t(GetImage().iWidth) *
                              GetImage().iHeight);
        for (std::size_t i = 0; i < vPairs.size(); ++i)
            vPairs[i] = i % 2 == 0 ? pA[i / 2] : pB[i / 2];
        return HostToDevice(vPairs.data());
    }
};
