#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>

#include "server/Data/RequestPlan.h"

/// What requests to transform and to compare have in common: which projections, the affine map
/// from the stack to the measured image, and the intensity scale.
class CAlignOp
{
public:
    /// x' = m0 x + m1 y + m4, y' = m2 x + m3 y + m5
    const std::array<float, 6>& GetMatrix() const { return m_afMatrix; }
    /// Linear requests fill the first three only; the others are 0.
    const std::array<float, 6>& GetScale() const { return m_afScale; }
    std::uint32_t GetMProj() const { return m_uiMProj; }  ///< measured projection
    std::uint32_t GetAProj() const { return m_uiAProj; }  ///< projection of the stack

protected:
    /// How a message carries its numbers. Scale values go on from the header into the data.
    struct Layout
    {
        int iMatrixField;
        int iHeaderScales;  ///< right after the matrix
        int iDataScales;
        bool bResetsSums = false;  ///< of the last comparison, also when the request is refused
    };
    /// Fields 4 and 5 are the projections. Refused when data is missing or a number is not finite,
    /// but for scale 2 = infinity and scale 3 = -infinity; nothing changes then. The projections
    /// are checked when the job starts. \param fnTrace  prints the request on the console
    CRequestPlan mPlan(const Layout& rLayout,
                       void (*fnTrace)(const CRemotePacket& rPacket) = nullptr);
    /// Prints iCount floats from field iField on as a line.
    static void mPrint(const CRemotePacket& rPacket, int iField, int iCount);

private:
    [[nodiscard]] bool mRead(const CRemotePacket& rPacket, const Layout& rLayout,
                             std::string& rReason);

    std::array<float, 6> m_afMatrix{};
    std::array<float, 6> m_afScale{};
    std::uint32_t m_uiMProj = 0;
    std::uint32_t m_uiAProj = 0;
};
