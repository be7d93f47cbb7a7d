#include "gpulib/App/Project/BackProjImpl.h"

#include "gpulib/App/Images/RowBatch.h"
#include "gpulib/App/Images/Textures.h"

void CBackProjImpl::SetTextures(const CTextures& rTextures)
{
    m_pTextures = &rTextures;
    m_aGBackProj.SetProjIndexArray(rTextures.GetProjIndexArray());
    m_aGBackProj.SetCosSinArray(rTextures.GetAnglesArray());
    m_aGBackProj.SetRangeXArray(rTextures.GetRangeArray());
    m_aGBackProj.SetProjsArray(rTextures.GetProjsArray());
    m_aGBackProj.SetVolArray(rTextures.GetVolArray());
}

bool CBackProjImpl::StartToHost(Util_Volume& rVolume, int iY, int iRows) const
{
    return m_pTextures->m_aVolTex.StartToHost(GetBatch(rVolume, iY, iRows));
}
