#pragma once

#include <cstdint>
#include <memory>
#include <string>

class CRemotePacket;
class Util_Volume;

/// The smoothing interval and kernel.
class CSmoothOpt
{
public:
    static CSmoothOpt* GetInstance();
    static void DeleteInstance();
    ~CSmoothOpt();

    /// SMOOTHOPT: field 4 = interval, 5, 6, 7 = kernel X, Y, Z, any of them 0 for an empty kernel;
    /// data: the kernel, X fastest; may end early, the rest is 0.
    /// False with a reason when the kernel or the data is too large; nothing changes then.
    [[nodiscard]] bool HandleSmoothOpt(const CRemotePacket& rPacket, std::string& rReason);
    static std::uint32_t GetMaxSmoothOpt(const CRemotePacket& rPacket);  ///< data in use, bytes

    const Util_Volume* GetKernel() const { return m_pKernel.get(); }  ///< null: no kernel
    std::uint32_t GetInterval() const { return m_uiInterval; }

private:
    CSmoothOpt();
    static std::unique_ptr<CSmoothOpt> m_pInstance;
    std::unique_ptr<Util_Volume> m_pKernel;
    std::uint32_t m_uiInterval = 0;
};
