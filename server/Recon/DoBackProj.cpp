#include "server/Recon/DoBackProj.h"

bool CDoBackProj::DoIt(int iStartY, int iSizeY)
{
    mValidateProjIndices();
    mConfigure(m_aBackProj);
    return m_aBackProj.DoIt(iStartY, iSizeY);
}
