#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// Reads the bytes of a fuzz input one after the other; zeros after the last.
class CInput
{
public:
    explicit CInput(std::span<const std::uint8_t> aBytes) : m_aBytes(aBytes) {}
    bool IsEmpty() const { return m_aBytes.empty(); }
    std::size_t GetLeft() const { return m_aBytes.size(); }
    std::uint8_t GetByte();
    std::uint32_t GetWord(int iBytes);  ///< 1 to 4 bytes, least significant first
    /// A header field in one byte: numbers below 200 are themselves, the others stand for numbers
    /// at limits, floats, or a number in the bytes that follow.
    std::uint32_t GetField();

private:
    std::span<const std::uint8_t> m_aBytes;
};

/// The words of a data block, made from a few bytes of the input.
/// \param uiKind  low 3 bits: 0 zeros, 1 float ramp, 2 noise, 3 counting integers, 4 integers and
///                then floats, 5 noise with missing and infinite values, 6 and 7 bytes of the input
///                again and again
/// \param tHead   integers that a block of kind 4 begins with
std::vector<std::uint32_t> MakeWords(CInput& rInput, std::uint8_t uiKind, std::size_t tWords,
                                     std::size_t tHead);
