#pragma once

#include <CLI/CLI.hpp>
#include <map>
#include <memory>
#include <string>

#include "Command.h"

namespace talven
{

/// The commands and options of the program: what it runs, and what its manual and completion tell
/// of.
class CProgram
{
public:
    CProgram();
    CLI::App& GetParser() { return m_aParser; }
    /// The command of one of the parser's subcommands; it lives as long as this object.
    CCommand& GetCommand(const CLI::App& rParser) { return *m_aCommands.at(&rParser); }
    /// Where the options go when the command is done; empty: nowhere.
    const std::string& GetSavePath() const { return m_strSavePath; }

private:
    CLI::App* mAddParser(const std::string& strName);

    CLI::App m_aParser{"Reconstruction of single-axis tilt series", "talven"};
    std::map<const CLI::App*, std::unique_ptr<CCommand>> m_aCommands;
    std::map<std::string, CLI::App*> m_apGroups;  // of commands
    std::string m_strSavePath;
};

}  // namespace talven
