#include "server/Recon/DoForwardProj.h"

#include "gpulib/App/Project/ForProj.h"

bool CDoForwardProj::DoIt(int iStartY, int iSizeY)
{
    mValidateProjIndices();
    mValidateWeightBox();
    mConfigure();
    CForProj aForProj(m_aJob);
    return aForProj.DoIt({.iStartY = iStartY, .iSizeY = iSizeY});
}
