#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

/// Data block of a packet. The memory of a former block is used again when it is large enough.
class CRemoteData
{
public:
    /// Makes a block of uiBytes zero bytes. \return false without memory: the block is empty then
    [[nodiscard]] bool SetOptSize(std::uint32_t uiBytes);
    /// The same with any content: pages that are never written cost nothing.
    [[nodiscard]] bool Allocate(std::uint32_t uiBytes);
    std::uint32_t GetOptSize() const { return m_uiOptSize; }
    std::byte* GetData() { return m_pData.get(); }  ///< null until the first block
    const std::byte* GetData() const { return m_pData.get(); }

private:
    struct Freer
    {
        void operator()(std::byte* pData) const { std::free(pData); }
    };
    std::unique_ptr<std::byte, Freer> m_pData;
    std::size_t m_tCapacity = 0;
    std::uint32_t m_uiOptSize = 0;
};
