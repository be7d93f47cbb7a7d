#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "Util/Util_Singleton.h"
#include "server/Data/RequestPlan.h"

/// The projections that take part in a job, as indices into the stack.
class CSetOp : public Util_Singleton<CSetOp>
{
public:
    /// SETOP: field 4 = 0 keeps the list (nothing else is read); field 5 = indices; data: indices,
    /// no more and no less.
    CRequestPlan HandleSetOp(const CRemotePacket& rPacket);
    void SetDefault(std::uint32_t uiProjs);  ///< 0, 1, ... uiProjs - 1

    /// Empty until PROJSIZE or SETOP has made one.
    std::span<const std::uint32_t> GetProjIndex() const { return m_vuiProjIndex; }

private:
    std::vector<std::uint32_t> m_vuiProjIndex;
};
