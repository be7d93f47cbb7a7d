#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

/// The data block of a packet: bytes of its own, or borrowed ones that are only sent.
///
/// The buffer is kept between packets and grows to the largest block seen.
class CRemoteData
{
public:
    std::uint32_t GetOptSize() const { return m_uiOptSize; }
    const std::byte* GetData() const { return m_pBorrowed ? m_pBorrowed : m_pBuffer.get(); }
    /// The own bytes, null while borrowed ones stand in.
    std::byte* GetOwnData() { return m_pBorrowed ? nullptr : m_pBuffer.get(); }

    /// Makes the block uiBytes long, zero-filled. \return false without the memory; then empty
    [[nodiscard]] bool SetOptSize(std::uint32_t uiBytes);
    /// The same with any content: pages that nobody writes cost nothing.
    [[nodiscard]] bool Reserve(std::uint32_t uiBytes);
    /// Stands for uiBytes at pvData, which must stay until the packet is sent.
    void Borrow(const void* pvData, std::uint32_t uiBytes);

private:
    std::unique_ptr<std::byte[]> m_pBuffer;
    std::uint32_t m_uiCapacity = 0;
    std::uint32_t m_uiOptSize = 0;
    const std::byte* m_pBorrowed = nullptr;
};
