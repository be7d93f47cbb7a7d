#include "gpulib/Device/Cuda/CudaBackend.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "gpulib/Device/DeviceError.h"

namespace
{
thread_local int t_iDevice = 0;

std::string DetailOf(const std::vector<CCudaBackend::Properties>& rDevices)
{
    std::string strDetail, strLeftOut;
    int iUsed = 0;
    for (std::size_t i = 0; i < rDevices.size(); ++i)
        if (!rDevices[i].strLeftOut.empty())
            strLeftOut += "; GPU " + std::to_string(i) + " is left out: " + rDevices[i].strLeftOut;
        else if (++iUsed == 1)
            strDetail = rDevices[i].strName;
    if (iUsed == 0) return strLeftOut.substr(2);
    if (iUsed > 1) strDetail = std::to_string(iUsed) + " x " + strDetail;
    return strDetail + strLeftOut;
}
}  // namespace

CCudaBackend::CCudaBackend(std::vector<Properties> vDevices, int iMaxRows)
    : m_vProperties(std::move(vDevices)),
      m_iMaxRows(iMaxRows),
      m_strDetail(DetailOf(m_vProperties)),
      m_vpDevices(m_vProperties.size())
{
}

CCudaBackend::~CCudaBackend()
{
    for (std::size_t i = 0; i < m_vpDevices.size(); ++i)
    {
        if (!m_vpDevices[i]) continue;
        cudaSetDevice(static_cast<int>(i));
        m_vpDevices[i].reset();
    }
}

std::size_t CCudaBackend::GetDeviceMemory(int iDevice) const
{
    return iDevice >= 0 && iDevice < GetDeviceCount() ? m_vProperties[iDevice].tMemory : 0;
}

bool CCudaBackend::SelectDevice(int iDevice)
{
    static_cast<void>(TakeDeviceError());  // of what went before; the runtime's own likewise
    cudaGetLastError();
    t_iDevice = iDevice;  // also when it cannot be opened: what follows on this thread fails then
    return mOpenDevice();
}

/// A device that could not be opened when it was selected may be free when a job wants it.
bool CCudaBackend::mOpenDevice()
{
    if (t_iDevice < 0 || t_iDevice >= GetDeviceCount())
        return DeviceFail("device %d of %d", t_iDevice, GetDeviceCount());
    const std::string& rLeftOut = m_vProperties[t_iDevice].strLeftOut;
    if (!rLeftOut.empty()) return DeviceFail("GPU %d is left out: %s", t_iDevice, rLeftOut.c_str());
    std::unique_ptr<Device>& rpDevice = m_vpDevices[t_iDevice];
    if (!CudaOk(cudaSetDevice(t_iDevice), "select device %d", t_iDevice)) return false;
    if (rpDevice) return true;
    auto pDevice = std::make_unique<Device>();
    if (!KeepFreedMemory(t_iDevice) || !MakeStream(pDevice->pStream) ||
        !pDevice->aStaging.Create(pDevice->pStream.get()))
        return false;
    rpDevice = std::move(pDevice);
    return true;
}

/// The thread may have selected a device of a backend that had more of them.
CCudaBackend::Device* CCudaBackend::mFindDevice() const
{
    const bool bThere = t_iDevice >= 0 && t_iDevice < GetDeviceCount();
    return bThere ? m_vpDevices[t_iDevice].get() : nullptr;
}

CCudaBackend::Device* CCudaBackend::mDevice() const
{
    Device* const pDevice = mFindDevice();
    if (!pDevice) static_cast<void>(DeviceFail("device %d is not open", t_iDevice));
    return pDevice;
}

int CCudaBackend::GetBatchRows(int iRows, std::size_t tBytesPerRow) const
{
    constexpr std::size_t tEnough = std::size_t(512)
                                    << 20;     // also one projection at a time fills a large device
    constexpr int iFewest = 64, iMost = 1024;  // of a batch that could be larger
    std::size_t tFree = 0, tTotal = 0;
    if (cudaMemGetInfo(&tFree, &tTotal) != cudaSuccess)
    {
        cudaGetLastError();
        tFree = std::numeric_limits<std::size_t>::max();  // whoever asks halves what does not fit
    }
    // A quarter of what is free; the values on their way to and fro take as much again.
    const std::size_t tRow = std::max<std::size_t>(tBytesPerRow, 1);
    const std::size_t tFits = tFree / 4 / (2 * tRow);
    const std::size_t tWanted = std::clamp<std::size_t>(tEnough / tRow, iFewest, iMost);
    int iBatch = static_cast<int>(std::clamp<std::size_t>(std::min(tFits, tWanted), 1, iMost));
    if (m_iMaxRows > 0) iBatch = std::min(iBatch, m_iMaxRows);
    // All batches about equal, in whole groups: the last one costs as much as the others.
    const int iAll = std::max(iRows, 1), iBatches = (iAll + iBatch - 1) / iBatch;
    const int iEqual = (iAll + iBatches - 1) / iBatches;
    const int iWhole = (iEqual + g_iGroupLanes - 1) / g_iGroupLanes * g_iGroupLanes;
    return std::min(m_iMaxRows > 0 ? iEqual : iWhole, iAll);
}

int CCudaBackend::GetPieceRows(int iWidth, int iRows) const
{
    constexpr int iPixels = 1 << 26, iGrid = 65535;  // rows of a launch
    return std::clamp(std::min(iPixels / std::max(iWidth, 1), iGrid), 1, std::max(iRows, 1));
}
