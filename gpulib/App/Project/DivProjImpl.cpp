#include "gpulib/App/Project/DivProjImpl.h"

#include "gpulib/App/Images/Textures.h"

bool CDivProjImpl::DoDiv()
{
    return mCalcSums() && m_aGForwardProj.DoDiv(m_aSums.GetImage(), m_pTextures->GetProjsArray());
}
