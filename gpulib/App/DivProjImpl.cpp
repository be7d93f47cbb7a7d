#include "gpulib/App/DivProjImpl.h"

#include "gpulib/App/Textures.h"

bool CDivProjImpl::DoDiv()
{
    return mCalcSums() && m_aGForwardProj.DoDiv(m_aSums.GetImage(), m_pTextures->GetProjsArray());
}
