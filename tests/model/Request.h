#pragma once

#include "tests/wire/Request.h"

/// What is the same for all requests of a type.
struct Kind
{
    std::uint32_t uiType;
    const char* pcName;     ///< in error lines
    std::uint32_t uiReply;  ///< type of the reply
};
/// Null for types without a reply.
const Kind* FindKind(std::uint32_t uiType);
/// For a person: name, fields, length of the data.
std::string ToText(const Request& rRequest);
