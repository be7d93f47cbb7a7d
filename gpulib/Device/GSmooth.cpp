#include "gpulib/Device/GSmooth.h"

#include "gpulib/Device/Backend.h"

bool GSmooth::DoIt(const DeviceImage& rOut)
{
    m_aParams.aOut = rOut;
    return GetBackend()->Smooth(m_aParams);
}
