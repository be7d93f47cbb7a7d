#include "server/Recon/DoForwardProj.h"

bool CDoForwardProj::DoIt(int iStartY, int iSizeY)
{
    mValidateProjIndices();
    mValidateWeightBox();
    mConfigure(m_aForProj);
    return m_aForProj.DoIt(iStartY, iSizeY);
}
