#include "gpulib/Device/DeviceCtx.h"

#include <cstdio>

#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"

int CDeviceCtx::GetDeviceCount() const
{
    return GetBackend() ? GetBackend()->GetDeviceCount() : 0;
}

void CDeviceCtx::SetDevice(int iDevice)
{
    const int iCount = GetDeviceCount();
    if (iCount <= 0)
    {
        std::puts("Error: No Cuda graphics card found.");
        return;
    }
    if (iDevice < 0 || iDevice >= iCount)
    {
        std::printf("Error: Invalid device ID: %d\n", iDevice);
        return;
    }
    m_iDevice = iDevice;
    if (GetBackend()->SelectDevice(iDevice)) return;
    std::printf("Error: Unable to set the device: %d\n", iDevice);
    std::printf("Info: GPU %d: %s.\n", iDevice,
                TakeDeviceError().c_str());  // no later job's reason
}
