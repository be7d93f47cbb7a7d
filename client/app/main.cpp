#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>

#include "Interrupt.h"
#include "Program.h"
#include "RunFacts.h"
#include "talven/AtomicFile.h"

namespace
{

using namespace talven;

int Complain(const std::string& strError, int iExit = g_iExitFailure)
{
    std::fprintf(stderr, "talven: %s\n", strError.c_str());
    return iExit;
}

/// The line of a file with options that cannot be taken; the file may hold anything.
std::string Explain(const CLI::ConfigError& rError)
{
    std::string strText = rError.what();
    strText = strText.substr(
        strText.find("parse ") == std::string::npos ? 0 : strText.find("parse ") + 6, 60);
    std::replace_if(
        strText.begin(), strText.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    return "--config: cannot take \"" + strText + "\"";
}

int Misused(const std::string& strError)
{
    std::fprintf(stderr, "talven: %s (--help shows the options)\n", strError.c_str());
    return g_iExitUsage;
}

/// The command that was given, whether it stands alone or in a group.
const CLI::App& FindChosen(const CLI::App& rParser)
{
    const CLI::App* pChosen = &rParser;
    while (!pChosen->get_subcommands().empty()) pChosen = pChosen->get_subcommands().front();
    return *pChosen;
}

/// "reconstruct", "batch.plan"
std::string FindSection(const CLI::App& rCommand)
{
    const CLI::App* pGroup = rCommand.get_parent();
    return (pGroup->get_parent() == nullptr ? "" : pGroup->get_name() + ".") + rCommand.get_name();
}

/// The whole program; returns its exit code.
int Run(int iArgs, char** ppcArgs)
{
    CInterrupt::Install();
    CProgram aProgram;
    CLI::App& rParser = aProgram.GetParser();
    try
    {
        rParser.parse(iArgs, ppcArgs);
    }
    catch (const CLI::ConfigError& rError)
    {
        return Misused(Explain(rError));
    }
    catch (const CLI::ParseError& rError)
    {
        if (rError.get_exit_code() == 0) return rParser.exit(rError);  // help, version
        return Misused(rError.what());
    }
    const CLI::App& rChosen = FindChosen(rParser);
    CCommand& rCommand = aProgram.GetCommand(rChosen);
    rCommand.SetCommandLine(QuoteForShell({ppcArgs, std::size_t(iArgs)}));
    if (!rCommand.Run())
        return Complain(rCommand.GetError(), rCommand.MayRetry() ? g_iExitRetry : g_iExitFailure);
    const std::string strOptions = "[" + FindSection(rChosen) + "]\n" + rChosen.config_to_str();
    const std::string& rSave = aProgram.GetSavePath();
    std::string strError;
    return rSave.empty() || WriteTextFile(rSave, strOptions, strError) ? 0 : Complain(strError);
}

}  // namespace

int main(int iArgs, char** ppcArgs)
{
    try
    {
        return Run(iArgs, ppcArgs);
    }
    catch (const std::exception& rError)  // no memory; nothing of ours throws
    {
        std::fprintf(stderr, "talven: %s\n", rError.what());
        return g_iExitFailure;
    }
}
