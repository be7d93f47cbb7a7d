#include "gpulib/App/Images/AnglesTexture.h"

#include <cmath>
#include <vector>

#include "gpulib/Device/DeviceError.h"

bool CAnglesTexture::Create(int iProjs)
{
    m_iSize = iProjs;
    m_aCosSin.SetFloat();
    m_aCosSin.SetChannels(2);
    return m_aCosSin.Create(iProjs, 1);
}

bool CAnglesTexture::SetData(std::span<const float> fAngles)
{
    if (std::ssize(fAngles) < m_iSize)
        return DeviceFail("tilt angles: %zu given, %d needed", fAngles.size(), m_iSize);
    constexpr double dDegree = 0.017453292519943295;
    std::vector<float> vfPairs;
    vfPairs.reserve(2 * fAngles.size());
    for (const double dAngle : fAngles.first(m_iSize))
    {
        // Exactly 0 at 90 degrees, which the library's cosine is not.
        vfPairs.push_back(static_cast<float>(std::sin((90 - dAngle) * dDegree)));
        vfPairs.push_back(static_cast<float>(std::sin(dAngle * dDegree)));
    }
    return m_aCosSin.HostToDevice(vfPairs.data());
}
