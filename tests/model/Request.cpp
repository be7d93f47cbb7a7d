#include "tests/model/Request.h"

#include <algorithm>
#include <iterator>

namespace
{
constexpr Kind g_aKinds[] = {{Msg::eProjGet, "PROJGET", Msg::eDataReply},
                             {Msg::eProjSet, "PROJSET", Msg::eCmdReply},
                             {Msg::eProjSize, "PROJSIZE", Msg::eCmdReply},
                             {Msg::eQuit, "QUIT", Msg::eQuit},
                             {Msg::eReconstruct, "RECONSTRUCT", Msg::eCmdReply},
                             {Msg::eReconStatGet, "RECONSTATGET", Msg::eDataReply},
                             {Msg::eReproject, "REPROJECT", Msg::eCmdReply},
                             {Msg::eServerProp, "SERVERPROP", Msg::eDataReply},
                             {Msg::eVolGet, "VOLGET", Msg::eDataReply},
                             {Msg::eVolSet, "VOLSET", Msg::eCmdReply},
                             {Msg::eVolSize, "VOLSIZE", Msg::eCmdReply},
                             {Msg::eSetOp, "SETOP", Msg::eCmdReply},
                             {Msg::eReconOpt, "RECONOPT", Msg::eCmdReply},
                             {Msg::eMProjSet, "MPROJSET", Msg::eCmdReply},
                             {Msg::eMProjSize, "MPROJSIZE", Msg::eCmdReply},
                             {Msg::eTransform, "TRANSFORM", Msg::eCmdReply},
                             {Msg::eTransforml, "TRANSFORML", Msg::eCmdReply},
                             {Msg::eCompare, "COMPARE", Msg::eCompReply},
                             {Msg::eComparel, "COMPAREL", Msg::eCompReply},
                             {Msg::eCompReply, "COMPREPLY", Msg::eDataReply},
                             {Msg::eWeightOpt, "WEIGHTOPT", Msg::eCmdReply},
                             {Msg::eSmoothOpt, "SMOOTHOPT", Msg::eCmdReply},
                             {Msg::eInvalid, "INVALID", Msg::eQuit}};
}  // namespace

const Kind* FindKind(std::uint32_t uiType)
{
    const auto pKind = std::ranges::find(g_aKinds, uiType, &Kind::uiType);
    return pKind != std::end(g_aKinds) ? pKind : nullptr;
}

std::string ToText(const Request& rRequest)
{
    const Kind* const pKind = FindKind(rRequest.uiType);
    std::string strText = pKind ? pKind->pcName : "type " + std::to_string(rRequest.uiType);
    for (const std::uint32_t uiField : rRequest.vuiFields) strText += ' ' + std::to_string(uiField);
    return strText + ", " + std::to_string(rRequest.GetBytes()) + " bytes";
}
