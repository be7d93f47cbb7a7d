#pragma once

#include <hdf5.h>

#include <utility>

#include "talven/ImageStack.h"

namespace talven
{

/// An identifier of the HDF5 library, closed at its end.
class CHdf5Id
{
public:
    using Closer = herr_t (*)(hid_t);

    CHdf5Id() = default;
    CHdf5Id(hid_t lId, Closer Close) : m_lId(lId), m_pClose(Close) {}
    ~CHdf5Id()
    {
        if (m_lId >= 0) m_pClose(m_lId);
    }
    CHdf5Id(const CHdf5Id&) = delete;
    CHdf5Id& operator=(CHdf5Id&& rOther) noexcept
    {
        std::swap(m_lId, rOther.m_lId);
        std::swap(m_pClose, rOther.m_pClose);
        return *this;
    }
    explicit operator bool() const { return m_lId >= 0; }
    hid_t Get() const { return m_lId; }

private:
    hid_t m_lId = H5I_INVALID_HID;
    Closer m_pClose = nullptr;
};

/// Images of an HDF5 file in the layout of Data Exchange (De Carlo et al., Journal of Synchrotron
/// Radiation 21, 2014): /exchange/data [angle][y][x] with the highest row first, /exchange/theta,
/// /exchange/data_white and /exchange/data_dark.
class CHdf5Stack : public CImageStack
{
public:
    /// Opens /exchange/data or another dataset of images. One image need not have a first axis.
    [[nodiscard]] bool Open(const std::string& strPath, const char* pcDataset = "/exchange/data");

    [[nodiscard]] bool ReadAngles(std::vector<float>& rAngles) override;
    [[nodiscard]] bool OpenFrames(EFrames eFrames, std::unique_ptr<CImageStack>& rFrames) override;

private:
    bool mRead(int iZ, std::span<float> fPixels) override;
    bool mOpenDataset(const char* pcDataset, CHdf5Id& rDataset);
    bool mMakeCache(const char* pcDataset);
    bool mHas(const char* pcDataset) const;
    bool mIsInRadians() const;
    bool mFailHere(const std::string& strWhat);

    CHdf5Id m_aFile, m_aDataset;
    bool m_bOne = false;  // no axis of images
};

}  // namespace talven
