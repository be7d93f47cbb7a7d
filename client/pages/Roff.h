#pragma once

#include <string>
#include <string_view>

namespace talven
{

/// Text as it is, for a manual page: what the formatter would take for its own is escaped.
std::string ToRoff(std::string_view strText);
/// Lines of text set as they are.
std::string LinesToRoff(std::string_view strLines);
/// Paragraphs, lists and code of Markdown, as docs/ has them; **bold**, `code`, [links](of which
/// the text stays). A paragraph must not have a table.
std::string MarkdownToRoff(std::string_view strMarkdown);

}  // namespace talven
