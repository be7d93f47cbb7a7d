#include "server/Data/Recon/ProjStack.h"

#include "server/Data/Recon/HolderMemory.h"

bool CProjStack::mCheckSize(const Extents& rSize, std::string& rReason) const
{
    return rSize.Check("stack", rReason) &&
           CheckMemory(GetBytes(), mCountBytes(rSize.uiX, rSize.uiY, rSize.uiZ), rReason);
}
