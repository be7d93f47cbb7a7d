#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <map>

#include "Command.h"
#include "Interrupt.h"
#include "RunFacts.h"
#include "talven/AtomicFile.h"

namespace
{

using namespace talven;

constexpr int g_iFailure = 1;
constexpr int g_iUsage = 2;

/// The commands, in the order of the help.
constexpr struct
{
    const char* pcName;
    const char* pcText;
    std::unique_ptr<CCommand> (*Make)();
    const char* pcExamples;
} g_aCommands[] = {
    {"reconstruct", "Reconstruct a volume from a tilt series", MakeReconstruct,
     "Examples:\n"
     "  talven reconstruct --tilts ts.mrc --angles ts.tlt --thickness 256 -o rec.mrc\n"
     "  talven reconstruct --tilts ts.mrc --angles ts.tlt --thickness 256 --subsets 6 \\\n"
     "      --relaxation 0.5:0.9 --exclude 3,7-9 -o rec.mrc --preview rec.png\n"
     "  talven reconstruct --tilts raw.st --mdoc raw.st.mdoc --xf raw.xf --thickness 256 \\\n"
     "      --bin 2 --method wbp --sirt-like 20 -o look.mrc --orientation xzy --mode 1\n"
     "  talven reconstruct --tilts ts.mrc --angles ts.tlt --thickness 256 --method em \\\n"
     "      --iterations 20 --server gpubox:20248 -o rec.mrc --rfactor-plot r.png\n"
     "  talven reconstruct --config ts.toml --subsets 8 -o other.mrc   (see --save-config)"},
    {"reproject", "Compute projections of a volume", MakeReproject,
     "Example:\n  talven reproject --volume rec.mrc --angles ts.tlt -o again.mrc"},
    {"transform", "Map measured projections onto the grid of a tilt series", MakeTransform,
     "Examples:\n"
     "  talven transform --measured raw.mrc --matrices shifts.txt -o ts.mrc\n"
     "  talven transform --measured raw.mrc --matrix 0.9962,-0.0872,0.0872,0.9962,3.5,-2 \\\n"
     "      --size 1000,1000 --log --beam 850 -o ts.mrc"},
    {"compare", "Tell how well measured projections agree with aligned ones", MakeCompare,
     "Examples:\n"
     "  talven reproject --volume rec.mrc --angles ts.tlt -o again.mrc\n"
     "  talven compare --measured raw.mrc --aligned again.mrc --search 20 \\\n"
     "      --write-matrices shifts.txt\n"
     "  talven transform --measured raw.mrc --matrices shifts.txt -o ts.mrc"},
    {"align", "Align a raw tilt series without markers", MakeAlign,
     "Views are brought over their neighbours, then matched with what a volume of them looks "
     "like,\n"
     "round after round. Refuses a series that comes to no agreement.\n"
     "Examples:\n"
     "  talven align --tilts raw.st --angles raw.rawtlt --thickness 256 --axis 85 -o ts.xf\n"
     "  talven reconstruct --tilts raw.st --angles raw.rawtlt --xf ts.xf --thickness 256 -o "
     "rec.mrc\n"
     "or both at once:\n"
     "  talven reconstruct --align --tilts raw.st --angles raw.rawtlt --tilt-axis 85 "
     "--thickness 256 -o rec.mrc"},
    {"view", "Draw slices of a volume or stack", MakeView,
     "Examples:\n"
     "  talven view rec.mrc -o middle.png\n"
     "  talven view rec.mrc --axis y --slices 100,120,140 --contrast 1,99 -o slices.png"},
    {"info", "Show what a server has", MakeInfo, "Example:\n  talven info --server gpubox:20248"},
    {"phantom", "Write a synthetic tilt series, its angles and its true volume", MakePhantom,
     "Example:\n"
     "  talven phantom --size 512,256 --thickness 128 --noise 0.02 --seed 1 phantom\n"
     "  talven reconstruct --tilts phantom.mrc --angles phantom.tlt --thickness 128 \\\n"
     "      -o volume.mrc --reference phantom_truth.mrc"},
    {"check-geometry", "Tell which way a series turns, where slice 0 and the centre are",
     MakeCheckGeometry,
     "Examples:\n"
     "  talven check-geometry\n"
     "  talven check-geometry --tilt-axis 85.3 --bin 2 --shift-z 4 --orientation xzy --flip-z"},
    {"serve", "Run talven-server in the foreground", MakeServe,
     "With an option, the settings are these and the environment's; without any, a config.gpu\n"
     "in the working directory counts.\n"
     "Example:\n  talven serve --port 20248 --bind 127.0.0.1 --devices 2"},
};

int Complain(const std::string& strError)
{
    std::fprintf(stderr, "talven: %s\n", strError.c_str());
    return g_iFailure;
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
    return g_iUsage;
}

/// The whole program; returns its exit code.
int Run(int iArgs, char** ppcArgs)
{
    CInterrupt::Install();
    CLI::App aApp("Reconstruction of single-axis tilt series", "talven");
    aApp.require_subcommand(1);
    aApp.set_version_flag("--version", "talven " TALVEN_VERSION);
    aApp.get_formatter()->column_width(32);
    aApp.footer("talven COMMAND --help shows the options of a command and examples.");
    aApp.set_config("--config", "", "Options in a section [COMMAND]; those given here win")
        ->type_name("FILE");
    aApp.allow_config_extras(CLI::config_extras_mode::error);
    std::string strSave;
    aApp.add_option("--save-config", strSave, "Write the options given into such a file")
        ->type_name("FILE")
        ->configurable(false);

    std::map<const CLI::App*, std::unique_ptr<CCommand>> aCommands;
    for (const auto& rRow : g_aCommands)
    {
        CLI::App* pParser = aApp.add_subcommand(rRow.pcName, rRow.pcText)->footer(rRow.pcExamples);
        pParser->fallthrough();
        aCommands[pParser] = rRow.Make();
        aCommands[pParser]->AddOptions(*pParser);
    }
    try
    {
        aApp.parse(iArgs, ppcArgs);
    }
    catch (const CLI::ConfigError& rError)
    {
        return Misused(Explain(rError));
    }
    catch (const CLI::ParseError& rError)
    {
        if (rError.get_exit_code() == 0) return aApp.exit(rError);  // help, version
        return Misused(rError.what());
    }
    const CLI::App* pParser = aApp.get_subcommands().front();
    CCommand& rCommand = *aCommands[pParser];
    rCommand.SetCommandLine(QuoteForShell({ppcArgs, std::size_t(iArgs)}));
    if (!rCommand.Run()) return Complain(rCommand.GetError());
    const std::string strOptions = "[" + pParser->get_name() + "]\n" + pParser->config_to_str();
    std::string strError;
    return strSave.empty() || WriteTextFile(strSave, strOptions, strError) ? 0 : Complain(strError);
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
        return g_iFailure;
    }
}
