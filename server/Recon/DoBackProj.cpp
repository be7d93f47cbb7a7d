#include "server/Recon/DoBackProj.h"

#include "gpulib/App/Project/BackProj.h"

bool CDoBackProj::DoIt(int iStartY, int iSizeY)
{
    mValidateProjIndices();
    mConfigure();
    CBackProj aBackProj(m_aJob);
    return aBackProj.DoIt({.iStartY = iStartY, .iSizeY = iSizeY});
}
