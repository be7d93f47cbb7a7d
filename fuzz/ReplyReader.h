#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// The header of one reply, in our byte order; its data is dropped.
struct Reply
{
    std::array<std::uint32_t, 16> auiFields{};
    bool bSwapped = false;  ///< came in the other byte order
};

/// Cuts the stream of a server into replies. A stream that cannot be one ends the process.
class CReplyReader
{
public:
    void Take(std::span<const std::byte> aBytes);
    /// All replies, after the last byte; none may be cut short.
    std::vector<Reply> Finish();

private:
    void mTakeHeader();

    std::array<std::byte, 64> m_aHeader{};
    std::size_t m_tHeader = 0;  // bytes of the header that have come
    std::size_t m_tData = 0;    // bytes of data still to come
    std::vector<Reply> m_vReplies;
};
