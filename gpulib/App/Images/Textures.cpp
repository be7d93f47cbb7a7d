#include "gpulib/App/Images/Textures.h"

#include <cmath>
#include <cstddef>
#include <vector>

#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"

namespace
{
/// Whether the caller's table is as long as the image needs it.
bool CheckLength(const char* pcWhat, std::size_t tGiven, std::size_t tNeeded)
{
    return tGiven >= tNeeded || DeviceFail("%s: %zu given, %zu needed", pcWhat, tGiven, tNeeded);
}
}  // namespace

bool CAnglesTexture::Create(int iProjs)
{
    m_aArray.SetFloat();
    m_aArray.SetChannels(2);
    return m_aArray.Create(iProjs, 1);
}

bool CAnglesTexture::SetData(std::span<const float> fAngles)
{
    const std::size_t tProjs = GetImage().iWidth;
    if (!CheckLength("tilt angles", fAngles.size(), tProjs)) return false;
    constexpr double dDegree = 0.017453292519943295;
    std::vector<float> vfPairs;
    for (const double dAngle : fAngles.first(tProjs))
    {
        // Exactly 0 at 90 degrees, which the library's cosine is not.
        vfPairs.push_back(static_cast<float>(std::sin((90 - dAngle) * dDegree)));
        vfPairs.push_back(static_cast<float>(std::sin(dAngle * dDegree)));
    }
    return m_aArray.HostToDevice(vfPairs.data());
}

bool CProjIndexTex::Create(std::span<const unsigned int> uiIndices)
{
    m_aArray.SetUInt();
    return m_aArray.Create(static_cast<int>(uiIndices.size()), 1) &&
           m_aArray.HostToDevice(uiIndices.data());
}

bool CRangeTexture::Create(int iSizeY, int iProjs)
{
    m_aArray.SetFloat();
    m_aArray.SetChannels(2);
    return m_aArray.Create(iSizeY, iProjs);
}

bool CRangeTexture::SetData(std::span<const unsigned int> uiRangeX, int iProjY, int iStartY)
{
    const std::size_t tProjY = iProjY, tProjs = GetImage().iHeight, tRows = GetImage().iWidth;
    if (!CheckLength("column ranges", uiRangeX.size(), 2 * tProjY * tProjs)) return false;
    std::vector<float> vfPairs;
    vfPairs.reserve(2 * tRows * tProjs);
    for (std::size_t n = 0; n < tProjs; ++n)
        for (const unsigned int uiColumn : uiRangeX.subspan(2 * (n * tProjY + iStartY), 2 * tRows))
            vfPairs.push_back(static_cast<float>(uiColumn));
    return m_aArray.HostToDevice(vfPairs.data());
}

bool CProjsTexture::Create(int iSizeX, int iProjs, int iLanes, EMeasured eMeasured)
{
    ClearDevice();
    m_eMeasured = eMeasured;
    m_aArray.SetLanes(iLanes);
    m_aRaw.SetLanes(iLanes);
    return m_aArray.Create(iSizeX, iProjs) &&
           (eMeasured != EMeasured::eImage || m_aRaw.Create(iSizeX, iProjs));
}

void CProjsTexture::ClearDevice()
{
    CTexture::ClearDevice();
    m_aRaw.Free();
}

bool CProjsTexture::SetRawData(const HostRows<float>& rRows)
{
    const int iX = GetImage().iWidth, iProjs = GetImage().iHeight;
    if (m_eMeasured == EMeasured::eStack) return m_aRaw.CreateLentRows(rRows, iX, iProjs);
    CDeviceArray2D& rTarget = m_eMeasured == EMeasured::eImage ? m_aRaw : m_aArray;
    return rTarget.HostToDevice(rRows.AsConst(), 0, 0, iX, iProjs);
}

bool CVolTexture::Create(int iSizeX, int iSizeZ, int iLanes)
{
    m_iSizeX = iSizeX;
    m_iSizeZ = iSizeZ;
    m_aArray.SetLanes(iLanes);
    return m_aArray.Create(iSizeX + 2, iSizeZ + 2);
}

bool CVolTexture::SetData(const HostRows<const float>& rRows)
{
    return m_aArray.HostToDevice(rRows, 1, 1, m_iSizeX, m_iSizeZ);
}

bool CVolTexture::SetZero()
{
    return GetBackend()->Clear(GetImage());
}

bool CVolTexture::MoveIn(const HostRows<float>& rRows)
{
    return m_aArray.MoveIn(rRows, 1, 1, m_iSizeX, m_iSizeZ);
}

bool CVolTexture::StartMoveOut(const HostRows<float>& rRows)
{
    return m_aArray.StartMoveOut(rRows, 1, 1, m_iSizeX, m_iSizeZ);
}
