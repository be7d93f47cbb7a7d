#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

class CRemotePacket;

/// The projections that take part in a job, as indices into the stack.
class CSetOp
{
public:
    static CSetOp* GetInstance();
    static void DeleteInstance() { m_pInstance.reset(); }

    /// SETOP: field 4 = 0 keeps the list (nothing else is read); field 5 = indices; data: indices.
    /// False with a reason when the data does not fit; nothing changes then.
    [[nodiscard]] bool HandleSetOp(const CRemotePacket& rPacket, std::string& rReason);
    static std::uint32_t GetMaxSetOp(const CRemotePacket& rPacket);  ///< data in use, bytes
    void SetDefault(std::uint32_t uiProjs);                          ///< 0, 1, ... uiProjs - 1

    bool HasList() const { return m_bHasList; }  ///< false until PROJSIZE or SETOP made one
    std::span<const std::uint32_t> GetProjIndex() const { return m_vuiProjIndex; }
    std::uint32_t GetNumIndices() const
    {
        return static_cast<std::uint32_t>(m_vuiProjIndex.size());
    }

private:
    CSetOp() = default;
    static std::unique_ptr<CSetOp> m_pInstance;
    std::vector<std::uint32_t> m_vuiProjIndex;
    bool m_bHasList = false;
};
