#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>

#include "CommonOptions.h"
#include "ImageCommands.h"
#include "Interrupt.h"
#include "Lists.h"
#include "Phantom.h"
#include "Reconstruct.h"
#include "Reproject.h"
#include "Serve.h"

namespace
{

using namespace talven;

constexpr int g_iFailure = 1;
constexpr int g_iUsage = 2;

std::string CheckRelaxation(const std::string& strText)
{
    CRelaxation aRelaxation;
    std::string strError;
    return aRelaxation.Parse(strText, strError) ? std::string() : strError;
}

std::string CheckSmoothing(const std::string& strText)
{
    double dSigma = 0;
    int iInterval = 0;
    std::string strError;
    return ParseSmoothing(strText, dSigma, iInterval, strError) ? std::string() : strError;
}

std::string CheckBox(const std::string& strText)
{
    std::vector<double> vdBox;
    std::string strError;
    return ParseNumbers(strText, 4, vdBox, strError) ? std::string() : strError;
}

CLI::App* AddReconstruct(CLI::App& rApp, ReconstructArgs& rArgs)
{
    CLI::App* pCommand =
        rApp.add_subcommand("reconstruct", "Reconstruct a volume from a tilt series");
    pCommand->add_option("--tilts", rArgs.strTilts, "Tilt series, MRC, tilt axis along Y")
        ->type_name("FILE")
        ->required();
    pCommand->add_option("--angles", rArgs.strAngles, "Tilt angles in degrees, one per line (.tlt)")
        ->type_name("FILE")
        ->required();
    pCommand->add_option("-o,--output", rArgs.strOutput, "The volume, MRC")
        ->type_name("FILE")
        ->required();
    pCommand->add_option("--thickness", rArgs.iThickness, "Extent of the volume along Z, voxels")
        ->required()
        ->check(CLI::PositiveNumber);
    pCommand->add_option("--width", rArgs.iWidth, "Extent along X, voxels [the detector's]")
        ->check(CLI::PositiveNumber);

    pCommand->add_option("--method", rArgs.strMethod, "sart, em or bp (plain back projection)")
        ->check(CLI::IsMember({"sart", "em", "bp"}))
        ->capture_default_str()
        ->group("Method");
    const auto AddIterative = [&](const std::string& strName, auto& rValue, const char* pcText)
    { return pCommand->add_option(strName, rValue, pcText)->group("Method"); };
    AddIterative("--iterations", rArgs.iIterations, "Iterations of sart or em")
        ->check(CLI::Range(1, 100000))
        ->capture_default_str();
    CLI::Option* pSubsets =
        AddIterative("--subsets", rArgs.iSubsets, "Subsets per iteration [one per six projections]")
            ->check(CLI::PositiveNumber);
    AddIterative("--subset-sizes", rArgs.strSubsetSizes, "Sizes of the subsets, such as 21,20,20")
        ->type_name("LIST")
        ->check(Check(ParseSizes))
        ->excludes(pSubsets);
    AddIterative("--relaxation", rArgs.strRelaxation,
                 "R for all iterations, R1,R2,... for each, or START:DECAY")
        ->type_name("FACTORS")
        ->check(CheckRelaxation)
        ->capture_default_str();
    AddIterative("--order", rArgs.strOrder,
                 "Subsets spread over the tilt range (interleaved) or cut from the stack as it is "
                 "(given)")
        ->check(CLI::IsMember({"interleaved", "given"}))
        ->capture_default_str();
    AddIterative("--weight-box", rArgs.strWeightBox,
                 "CX,CZ,HX,HZ: centre and half sizes of the box that holds the specimen, voxels "
                 "from the centre of the volume; weights rays by their path in it")
        ->type_name("BOX")
        ->check(CheckBox);
    AddIterative("--smooth", rArgs.strSmooth,
                 "SIGMA[,INTERVAL]: smooth the volume with a Gaussian of SIGMA voxels after every "
                 "INTERVAL iterations [1]")
        ->type_name("SIGMA")
        ->check(CheckSmoothing);
    AddIterative("--initial-volume", rArgs.strInitial, "Start from this volume instead of zeros")
        ->type_name("FILE");
    CLI::Option* pExclude = AddIterative("--exclude", rArgs.strExclude,
                                         "Leave out these views, counted from 1, such as 3,7-9");
    CLI::Option* pInclude =
        AddIterative("--include", rArgs.strInclude, "Use only these views, counted from 1");
    pExclude->type_name("VIEWS")->check(Check(ParseViews));
    pInclude->type_name("VIEWS")->check(Check(ParseViews))->excludes(pExclude);

    const auto AddResult = [&](const char* pcName, std::string& rPath, const char* pcText)
    { pCommand->add_option(pcName, rPath, pcText)->type_name("FILE")->group("Further results"); };
    AddResult("--preview", rArgs.strPreview, "PNG of the three central slices");
    AddResult("--rfactor-plot", rArgs.strPlot, "PNG of the R-factor after every iteration");
    AddResult("--rfactors", rArgs.strRfactors, "The same as text: iteration,rfactor");
    AddResult("--reference", rArgs.strReference,
              "Compare the volume with this one: correlation and relative RMS error");
    AddServerOptions(*pCommand, rArgs.aServer);
    AddReportOptions(*pCommand, rArgs.aReport);
    pCommand->footer(
        "Examples:\n"
        "  talven reconstruct --tilts ts.mrc --angles ts.tlt --thickness 256 -o rec.mrc\n"
        "  talven reconstruct --tilts ts.mrc --angles ts.tlt --thickness 256 --subsets 6 \\\n"
        "      --relaxation 0.5:0.9 --exclude 3,7-9 -o rec.mrc --preview rec.png\n"
        "  talven reconstruct --tilts ts.mrc --angles ts.tlt --thickness 256 --smooth 0.7,5 \\\n"
        "      -o smooth.mrc\n"
        "  talven reconstruct --tilts ts.mrc --angles ts.tlt --thickness 256 --method em \\\n"
        "      --iterations 20 --server gpubox:20248 -o rec.mrc --rfactor-plot r.png");
    return pCommand;
}

CLI::App* AddReproject(CLI::App& rApp, ReprojectArgs& rArgs)
{
    CLI::App* pCommand = rApp.add_subcommand("reproject", "Compute projections of a volume");
    pCommand->add_option("--volume", rArgs.strVolume, "The volume, MRC")
        ->type_name("FILE")
        ->required();
    pCommand->add_option("--angles", rArgs.strAngles, "Tilt angles in degrees, one per line")
        ->type_name("FILE")
        ->required();
    pCommand->add_option("-o,--output", rArgs.strOutput, "The projections, MRC")
        ->type_name("FILE")
        ->required();
    pCommand->add_option("--width", rArgs.iWidth, "Columns of the detector [the volume's X]")
        ->check(CLI::PositiveNumber);
    AddServerOptions(*pCommand, rArgs.aServer);
    AddReportOptions(*pCommand, rArgs.aReport);
    pCommand->footer("Example:\n  talven reproject --volume rec.mrc --angles ts.tlt -o again.mrc");
    return pCommand;
}

CLI::App* AddInfo(CLI::App& rApp, InfoArgs& rArgs)
{
    CLI::App* pCommand = rApp.add_subcommand("info", "Show what a server has");
    AddServerOptions(*pCommand, rArgs.aServer);
    AddReportOptions(*pCommand, rArgs.aReport);
    pCommand->footer("Example:\n  talven info --server gpubox:20248");
    return pCommand;
}

CLI::App* AddPhantom(CLI::App& rApp, PhantomArgs& rArgs)
{
    CLI::App* pCommand = rApp.add_subcommand(
        "phantom", "Write a synthetic tilt series, its angles and its true volume");
    pCommand
        ->add_option("prefix", rArgs.strPrefix, "Writes PREFIX.mrc, PREFIX.tlt, PREFIX_truth.mrc")
        ->required();
    const auto Add = [&](const char* pcName, auto& rValue, const char* pcText)
    { return pCommand->add_option(pcName, rValue, pcText)->capture_default_str(); };
    Add("--size", rArgs.strSize, "X,Y of the projections, pixels")->check(Check(ParseSizes));
    Add("--thickness", rArgs.iThickness, "Z of the volume, voxels")->check(CLI::Range(1, 32768));
    Add("--angles", rArgs.strAngles, "FROM,TO,STEP in degrees");
    Add("--beads", rArgs.iBeads, "Fiducial beads")->check(CLI::Range(0, 1000));
    Add("--noise", rArgs.dNoise,
        "Gaussian noise: its standard deviation over the mean of a projection")
        ->check(CLI::Range(0.0, 1e6));
    Add("--dose", rArgs.dDose, "Poisson noise: counts per pixel where the signal is mean; 0: none")
        ->check(CLI::Range(0.0, 1e9));
    Add("--seed", rArgs.ulSeed, "Chooses the specimen and the noise");
    Add("--pixel", rArgs.dPixel, "Size of a pixel, Angstrom")->check(CLI::Range(0.0, 1e9));
    AddReportOptions(*pCommand, rArgs.aReport);
    pCommand->footer(
        "Example:\n"
        "  talven phantom --size 512,256 --thickness 128 --noise 0.02 --seed 1 phantom\n"
        "  talven reconstruct --tilts phantom.mrc --angles phantom.tlt --thickness 128 \\\n"
        "      -o volume.mrc --reference phantom_truth.mrc");
    return pCommand;
}

CLI::App* AddServe(CLI::App& rApp, ServeArgs& rArgs)
{
    CLI::App* pCommand = rApp.add_subcommand("serve", "Run talven-server in the foreground");
    pCommand->add_option("--port", rArgs.iPort, "TCP port [20248]")->check(CLI::Range(1, 65535));
    pCommand->add_option("--devices", rArgs.iDevices, "Use only the first so many devices [all]")
        ->check(CLI::Range(1, 16));
    pCommand->add_option("--bind", rArgs.strBind, "IPv4 address to listen on [all]")
        ->check(CLI::ValidIPV4);
    AddBackendOption(*pCommand, rArgs.strBackend);
    pCommand->footer(
        "With an option, the settings are these and the environment's; without any, a config.gpu\n"
        "in the working directory counts.\n"
        "Example:\n  talven serve --port 20248 --bind 127.0.0.1 --devices 2");
    return pCommand;
}

int Report(bool bDone, const std::string& strError)
{
    if (bDone) return 0;
    std::fprintf(stderr, "talven: %s\n", strError.c_str());
    return g_iFailure;
}

/// The whole program; returns its exit code.
int Run(int iArgs, char** ppcArgs)
{
    CInterrupt::Install();
    CLI::App aApp("Reconstruction of single-axis tilt series", "talven");
    aApp.require_subcommand(1);
    aApp.set_version_flag("--version", "talven " TALVEN_VERSION);
    aApp.get_formatter()->column_width(32);

    ReconstructArgs aReconstructArgs;
    ReprojectArgs aReprojectArgs;
    InfoArgs aInfoArgs;
    TransformArgs aTransformArgs;
    CompareArgs aCompareArgs;
    ViewArgs aViewArgs;
    PhantomArgs aPhantomArgs;
    ServeArgs aServeArgs;
    const CLI::App* pReconstruct = AddReconstruct(aApp, aReconstructArgs);
    const CLI::App* pReproject = AddReproject(aApp, aReprojectArgs);
    const CLI::App* pTransform = AddTransform(aApp, aTransformArgs);
    const CLI::App* pCompare = AddCompare(aApp, aCompareArgs);
    const CLI::App* pView = AddView(aApp, aViewArgs);
    const CLI::App* pInfo = AddInfo(aApp, aInfoArgs);
    const CLI::App* pPhantom = AddPhantom(aApp, aPhantomArgs);
    AddServe(aApp, aServeArgs);
    aApp.footer("talven COMMAND --help shows the options of a command and examples.");

    try
    {
        aApp.parse(iArgs, ppcArgs);
    }
    catch (const CLI::ParseError& rError)
    {
        if (rError.get_exit_code() == 0) return aApp.exit(rError);  // help, version
        std::fprintf(stderr, "talven: %s (--help shows the options)\n", rError.what());
        return g_iUsage;
    }

    std::string strError;
    if (pReconstruct->parsed()) return Report(RunReconstruct(aReconstructArgs, strError), strError);
    if (pReproject->parsed()) return Report(RunReproject(aReprojectArgs, strError), strError);
    if (pTransform->parsed()) return Report(RunTransform(aTransformArgs, strError), strError);
    if (pCompare->parsed()) return Report(RunCompare(aCompareArgs, strError), strError);
    if (pView->parsed()) return Report(RunView(aViewArgs, strError), strError);
    if (pInfo->parsed()) return Report(RunInfo(aInfoArgs, strError), strError);
    if (pPhantom->parsed()) return Report(RunPhantom(aPhantomArgs, strError), strError);
    RunServe(aServeArgs, strError);
    return Report(false, strError);
}

}  // namespace

#ifdef __SANITIZE_ADDRESS__
// fontconfig, under cairo, keeps its tables to the end of the process.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:libfontconfig";
}
#endif

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
