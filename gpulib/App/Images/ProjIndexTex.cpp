#include "gpulib/App/Images/ProjIndexTex.h"

bool CProjIndexTex::Create(std::span<const unsigned int> uiIndices)
{
    m_aArray2D.SetUInt();
    m_aArray2D.SetChannels(1);
    return m_aArray2D.Create(static_cast<int>(uiIndices.size()), 1) &&
           m_aArray2D.HostToDevice(uiIndices.data());
}
