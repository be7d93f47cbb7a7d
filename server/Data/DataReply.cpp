#include "server/Data/DataReply.h"

#include "server/Data/Recon/CompareSum.h"
#include "server/Data/Refuse.h"
#include "server/Data/ReplyData.h"

void CDataReply::mSetHeader(const CRemotePacket& rRequest)
{
    m_aRemotePacket.SetMsgType(CMsgConst::DATAREPLY);
    m_aRemotePacket.SetParentSerial(rRequest.GetSerial());
    m_aRemotePacket.SetNthField(5, 0);
    m_aRemotePacket.ClearData();
}

bool CDataReply::GiveNothing(const CRemotePacket& rRequest)
{
    mSetHeader(rRequest);
    m_aRemotePacket.SetNthField(5, 1);
    return false;
}

bool CDataReply::mLend(const CRemotePacket& rRequest, std::span<const float> aData,
                       std::string& rReason)
{
    if (aData.empty()) return GiveNothing(rRequest);
    mSetHeader(rRequest);
    if (m_aRemotePacket.LendData4(aData)) return true;
    Refuse(rReason, "%zu bytes do not fit into one packet or into memory", aData.size_bytes());
    return GiveNothing(rRequest);
}

bool CDataReply::ProjGet(const CRemotePacket& rRequest, std::string& rReason)
{
    return mLend(rRequest, FindProj(rRequest.GetNthField(4), rReason), rReason);
}

bool CDataReply::VolGet(const CRemotePacket& rRequest, std::string& rReason)
{
    return mLend(rRequest, FindSlice(rRequest.GetNthField(4), rReason), rReason);
}

bool CDataReply::ReconStatGet(const CRemotePacket& rRequest, std::string& rReason)
{
    m_vfRfactors = FindRfactors(rRequest.GetNthField(4), rReason);
    return mLend(rRequest, m_vfRfactors, rReason);
}

bool CDataReply::ServerProp(const CRemotePacket& rRequest, std::string&)
{
    mSetHeader(rRequest);
    SetServerProp(m_aRemotePacket);
    return true;
}

bool CDataReply::CompReply(const CRemotePacket& rRequest, std::string&)
{
    CCompareSum::GetInstance()->StopTimer();
    mSetHeader(rRequest);
    SetCompareSums(m_aRemotePacket);  // the count of pixels has never had a field here
    return true;
}
