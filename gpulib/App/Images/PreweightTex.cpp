#include "gpulib/App/Images/PreweightTex.h"

bool CPreweightTex::Create(int iSizeX, int iProjs)
{
    m_aArray2D.SetFloat();
    m_aArray2D.SetChannels(1);
    return m_aArray2D.Create(iSizeX, iProjs);
}

bool CPreweightTex::SetData(std::span<const float> fWeights)
{
    return m_aArray2D.HostToDevice(fWeights.data());
}
