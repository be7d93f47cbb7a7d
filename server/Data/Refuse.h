#pragma once

#include <string>

/// Formats the reason of a refusal into rReason. \return false, for the caller to return
[[gnu::format(printf, 2, 3)]] bool Refuse(std::string& rReason, const char* pcFormat, ...);
