#include "server/Data/RequestPlan.h"

#include "Util/Util_String.h"
#include "server/Data/Refuse.h"
#include "server/Data/RemotePacket.h"

CRequestPlan CRequestPlan::Refuse(const char* pcFormat, ...)
{
    CRequestPlan aPlan;
    std::va_list aArgs;
    va_start(aArgs, pcFormat);
    aPlan.m_strRefusal = Util_String::FormatList(pcFormat, aArgs);
    va_end(aArgs);
    return aPlan;
}

bool CRequestPlan::DoIt(const CRemotePacket& rPacket, std::string& rReason) const
{
    if (m_strRefusal) rReason = *m_strRefusal;
    if (m_strRefusal) return false;
    if (rPacket.HasLostData())
        return ::Refuse(rReason, "no memory for %u bytes of data", rPacket.GetOptSize());
    return !m_fnAction || m_fnAction(rPacket, rReason);
}
