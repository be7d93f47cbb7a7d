#pragma once

#include <string>

#include "OptionTexts.h"

namespace talven
{

/// Completion of commands, options, files and choices, as a script for each shell.
/// Names of the commands of a group, without it.
std::vector<std::string> ListCommands(const ProgramText& rText, const std::string& strGroup);

std::string MakeBashCompletion(const ProgramText& rText);
std::string MakeZshCompletion(const ProgramText& rText);
std::string MakeFishCompletion(const ProgramText& rText);

/// The options of a command and those of the program, which may stand behind it, too; no help
/// twice.
std::vector<OptionText> GetOptions(const CommandText& rCommand, const ProgramText& rText);

}  // namespace talven
