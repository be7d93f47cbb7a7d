#pragma once

#include <cstddef>
#include <map>
#include <span>
#include <string>
#include <string_view>

namespace talven
{

/// Text for an HTML page, also inside quotes: & < > " ' as entities, control characters as "?".
std::string EscapeHtml(std::string_view strText);
/// A PNG file as the address of a picture inside the page.
std::string MakeDataUri(std::span<const std::byte> cPng);
/// A template with its marks, "[[name]]", replaced; the values are taken as they are.
std::string FillTemplate(std::string_view strTemplate,
                         const std::map<std::string, std::string, std::less<>>& rValues);

}  // namespace talven
