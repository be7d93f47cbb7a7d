#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace talven
{

/// What the help says of one option or positional argument.
struct OptionText
{
    std::vector<std::string> vstrNames;  ///< "-o", "--output"; empty: positional
    std::string strValue;                ///< "FILE", "X,Y", name of a positional; empty: a flag
    std::string strText;                 ///< one line, no full stop
    std::string strRange;                ///< "1 to 64"; empty: not said
    std::string strDefault;
    std::string strGroup;
    std::vector<std::string> vstrChoices;   ///< the only values; empty: others
    std::vector<std::string> vstrExcludes;  ///< "--devices"
    bool bFile = false;                     ///< the value is a path
    bool bRequired = false;

    bool IsPositional() const { return vstrNames.empty(); }
};

struct CommandText
{
    std::string strName;  ///< "reconstruct", "batch plan"
    std::string strText;
    std::string strFooter;                ///< of the help: prose, then "Example:" and what follows
    std::vector<OptionText> vaOptions;    ///< in the order of the help
    std::vector<std::string> vstrGroups;  ///< of the options, likewise

    /// "batch" of "batch plan"; empty: it stands alone.
    std::string GetGroup() const;
    /// Without its group.
    std::string GetOwnName() const;
};

struct ProgramText
{
    CommandText aProgram;                 ///< its options may stand behind every command
    std::vector<CommandText> vaCommands;  ///< those of a group one behind the other
    std::vector<CommandText> vaGroups;    ///< of commands: names and texts
};

ProgramText DescribeProgram(const CLI::App& rParser);
/// The options of the program that mean something behind a command, too.
std::vector<OptionText> GetSharedOptions(const ProgramText& rText);

}  // namespace talven
