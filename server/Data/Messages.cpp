#include "server/Data/Messages.h"

#include "server/Data/ByteOrder.h"
#include "server/Data/DataReply.h"
#include "server/Data/MsgConst.h"
#include "server/Data/Recon/CompareOp.h"
#include "server/Data/Recon/ComparelOp.h"
#include "server/Data/Recon/MProjData.h"
#include "server/Data/Recon/ProjData.h"
#include "server/Data/Recon/ReconOpt.h"
#include "server/Data/Recon/SetOp.h"
#include "server/Data/Recon/SmoothOpt.h"
#include "server/Data/Recon/TransformOp.h"
#include "server/Data/Recon/TransformlOp.h"
#include "server/Data/Recon/VolData.h"
#include "server/Data/Recon/WeightOpt.h"

namespace
{
/// The handler of a holder.
template <class T, CRequestPlan (T::*pfnHandler)(const CRemotePacket&)>
CRequestPlan To(const CRemotePacket& rPacket)
{
    return (T::GetInstance()->*pfnHandler)(rPacket);
}

/// An operation that fills the data reply.
template <bool (CDataReply::*pfnFill)(const CRemotePacket&, std::string&)>
CRequestPlan Give(const CRemotePacket&)
{
    return CRequestPlan([](const CRemotePacket& rPacket, std::string& rReason)
                        { return (CDataReply::GetInstance()->*pfnFill)(rPacket, rReason); });
}

CRequestPlan SetByteOrder(const CRemotePacket&)
{
    return CRequestPlan(
        [](const CRemotePacket& rPacket, std::string&)
        {
            CByteOrder::GetInstance()->Determine(rPacket.GetNthField(4));
            return true;
        });
}

// clang-format off
constexpr Message g_aMessages[] = {
    {CMsgConst::BYTEORDER, "BYTEORDER", EReply::eNone, SetByteOrder},
    {CMsgConst::CMDREPLY, "CMDREPLY"},
    {CMsgConst::CONTINUATION, "CONTINUATION"},  // no tracker is fed, so none finds its message
    {CMsgConst::DATAREPLY, "DATAREPLY"},
    {CMsgConst::LOG, "LOG"},
    {CMsgConst::PROJGET, "PROJGET", EReply::eData, Give<&CDataReply::ProjGet>},
    {CMsgConst::PROJSET, "PROJSET", EReply::eCommand, To<CProjData, &CProjData::HandleProjSet>, true},
    {CMsgConst::PROJSIZE, "PROJSIZE", EReply::eCommand, To<CProjData, &CProjData::HandleProjSize>, true},
    {CMsgConst::QUIT, "QUIT"},
    {CMsgConst::RECONSTRUCT, "RECONSTRUCT", EReply::eJob},
    {CMsgConst::RECONSTATGET, "RECONSTATGET", EReply::eData, Give<&CDataReply::ReconStatGet>},
    {CMsgConst::REPROJECT, "REPROJECT", EReply::eJob},
    {CMsgConst::SERVERPROP, "SERVERPROP", EReply::eData, Give<&CDataReply::ServerProp>},
    {CMsgConst::VOLGET, "VOLGET", EReply::eData, Give<&CDataReply::VolGet>},
    {CMsgConst::VOLSET, "VOLSET", EReply::eCommand, To<CVolData, &CVolData::HandleVolSet>},
    {CMsgConst::VOLSIZE, "VOLSIZE", EReply::eCommand, To<CVolData, &CVolData::HandleVolSize>},
    {CMsgConst::SETOP, "SETOP", EReply::eCommand, To<CSetOp, &CSetOp::HandleSetOp>},
    {CMsgConst::RECONOPT, "RECONOPT", EReply::eCommand, To<CReconOpt, &CReconOpt::HandleReconOpt>},
    {CMsgConst::MPROJSET, "MPROJSET", EReply::eCommand, To<CMProjData, &CMProjData::HandleMProjSet>},
    {CMsgConst::MPROJSIZE, "MPROJSIZE", EReply::eCommand, To<CMProjData, &CMProjData::HandleMProjSize>},
    {CMsgConst::TRANSFORM, "TRANSFORM", EReply::eCommand, To<CTransformOp, &CTransformOp::HandleTransform>},
    {CMsgConst::TRANSFORML, "TRANSFORML", EReply::eCommand, To<CTransformlOp, &CTransformlOp::HandleTransforml>},
    {CMsgConst::COMPARE, "COMPARE", EReply::eCompare, To<CCompareOp, &CCompareOp::Handle>},
    {CMsgConst::COMPAREL, "COMPAREL", EReply::eCompare, To<CComparelOp, &CComparelOp::Handle>, true},
    {CMsgConst::COMPREPLY, "COMPREPLY", EReply::eData, Give<&CDataReply::CompReply>},
    {CMsgConst::WEIGHTOPT, "WEIGHTOPT", EReply::eCommand, To<CWeightOpt, &CWeightOpt::HandleWeightOpt>},
    {CMsgConst::CTFOPT, "CTFOPT"},
    {CMsgConst::SMOOTHOPT, "SMOOTHOPT", EReply::eCommand, To<CSmoothOpt, &CSmoothOpt::HandleSmoothOpt>},
    {CMsgConst::INVALID, "INVALID"},
};
// clang-format on
}  // namespace

const Message* FindMessage(std::uint32_t uiType)
{
    for (const Message& rMessage : g_aMessages)
        if (rMessage.uiType == uiType) return &rMessage;
    return nullptr;
}
