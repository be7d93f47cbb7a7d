#pragma once

#include <bit>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/wire/Messages.h"

using Words = std::vector<std::uint32_t>;

/// A request as a value; its first parameter is word 4.
struct Request
{
    std::uint32_t uiType = 0;
    Words vuiFields = {}, vuiData = {};
    std::string strTail = {};  ///< bytes behind the last whole word of the data, in no byte order

    std::uint32_t Field(std::size_t n) const
    {
        return n < 4 + vuiFields.size() ? vuiFields[n - 4] : 0;
    }
    float FieldF(std::size_t n) const { return std::bit_cast<float>(Field(n)); }
    std::uint64_t GetBytes() const { return 4 * vuiData.size() + strTail.size(); }
};

/// Bits of floats, as header fields and data carry them.
inline std::uint32_t Bits(float fValue)
{
    return std::bit_cast<std::uint32_t>(fValue);
}
inline Words ToWords(const std::vector<float>& rValues)
{
    Words vuiWords;
    for (const float fValue : rValues) vuiWords.push_back(Bits(fValue));
    return vuiWords;
}
