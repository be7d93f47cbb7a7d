#pragma once

#include <map>
#include <string>

#include "OptionTexts.h"

namespace talven
{

/// What the manual pages need beside the options.
struct ManSource
{
    std::string strDocument;   ///< docs/cli.md
    std::string strDate;       ///< for the foot of the pages
    std::string strDocuments;  ///< folder where docs/ is installed
};

/// The pages of the program and of every command: text by file name, "talven-view.1".
std::map<std::string, std::string> MakeManPages(const ProgramText& rText, const ManSource& rSource);

}  // namespace talven
