#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>

class CRemotePacket;

/// What becomes of a request, decided from its header alone: it is refused, or its data goes
/// somewhere and something is done then.
class CRequestPlan
{
public:
    /// What is done when the data has come. False with a reason: nothing has changed.
    using Action = std::function<bool(const CRemotePacket& rPacket, std::string& rReason)>;
    /// Memory of a holder. Both parts begin with a word of the data.
    using Target = std::array<std::span<std::byte>, 2>;

    CRequestPlan() = default;  ///< drops all data and does nothing
    /// The packet keeps the first uiKept bytes of its data for the action, the rest is dropped.
    explicit CRequestPlan(Action fnAction, std::uint32_t uiKept = 0)
        : m_fnAction(std::move(fnAction)), m_uiKept(uiKept)
    {
    }
    /// The data, all of it, is received into a holder without a copy in between.
    explicit CRequestPlan(const Target& rTarget) : m_aTarget(rTarget) {}
    [[gnu::format(printf, 1, 2)]] static CRequestPlan Refuse(const char* pcFormat, ...);

    std::uint32_t GetKept() const { return m_uiKept; }
    const Target& GetTarget() const { return m_aTarget; }
    /// Carries out what is planned for a packet whose data has come.
    [[nodiscard]] bool DoIt(const CRemotePacket& rPacket, std::string& rReason) const;

private:
    std::optional<std::string> m_strRefusal;
    Action m_fnAction;
    std::uint32_t m_uiKept = 0;
    Target m_aTarget;
};
