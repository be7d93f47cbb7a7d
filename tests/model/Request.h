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
    Words vuiFields, vuiData;
    std::string strTail = {};  ///< bytes behind the last whole word of the data, in no byte order

    std::uint32_t Field(std::size_t n) const
    {
        return n < 4 + vuiFields.size() ? vuiFields[n - 4] : 0;
    }
    float FieldF(std::size_t n) const { return std::bit_cast<float>(Field(n)); }
    std::uint64_t GetBytes() const { return 4 * vuiData.size() + strTail.size(); }
    /// For a person: name, fields, length of the data.
    std::string ToText() const;
};

/// What is the same for all requests of a type.
struct Kind
{
    std::uint32_t uiType;
    const char* pcName;     ///< in error lines
    std::uint32_t uiReply;  ///< type of the reply
};
/// Null for types without a reply.
const Kind* FindKind(std::uint32_t uiType);
