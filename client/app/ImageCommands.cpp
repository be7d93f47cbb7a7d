#include "ImageCommands.h"

#include "CommonOptions.h"
#include "Lists.h"

namespace talven
{
namespace
{

std::string CheckMatrix(const std::string& strText)
{
    std::vector<double> vdMatrix;
    std::string strError;
    return ParseNumbers(strText, 6, vdMatrix, strError) ? std::string() : strError;
}

void AddAlignmentOptions(CLI::App& rApp, AlignmentArgs& rArgs)
{
    CLI::Option* pMatrix =
        rApp.add_option("--matrix", rArgs.strMatrix,
                        "A,B,C,D,E,F for all sections: pixel (x, y) of the output is read at "
                        "(Ax + By + E, Cx + Dy + F) of the measured image [1,0,0,1,0,0]")
            ->type_name("MATRIX")
            ->check(CheckMatrix)
            ->group("Map");
    rApp.add_option("--matrices", rArgs.strMatrices,
                    "One such matrix per section, six numbers a line")
        ->type_name("FILE")
        ->excludes(pMatrix)
        ->group("Map");
    rApp.add_option("--origin", rArgs.strOrigin,
                    "Where x and y are 0: the centre of each image, or its first pixel (corner)")
        ->check(CLI::IsMember({"centre", "corner"}))
        ->capture_default_str()
        ->group("Map");

    const auto AddScale = [&](const char* pcName, double& rValue, const char* pcText)
    { return rApp.add_option(pcName, rValue, pcText)->group("Intensity"); };
    AddScale("--gain", rArgs.dGain, "A measured value p becomes gain * p + offset")
        ->capture_default_str();
    AddScale("--offset", rArgs.dOffset, "See --gain")->capture_default_str();
    AddScale("--most", rArgs.dMost, "Cut results above this [none]")
        ->each([&rArgs](const std::string&) { rArgs.bMost = true; });
    CLI::Option* pLog =
        rApp.add_flag("--log", rArgs.bLog, "Then factor * ln(beam / that), for counts of electrons")
            ->group("Intensity");
    CLI::Option* pBeam =
        AddScale("--beam", rArgs.dBeam, "Value without a specimen, for --log")->needs(pLog);
    pLog->needs(pBeam);
    AddScale("--least", rArgs.dLeast, "Raise smaller values to this before the logarithm")
        ->needs(pLog)
        ->capture_default_str();
    AddScale("--factor", rArgs.dFactor, "See --log")->needs(pLog)->capture_default_str();
}

}  // namespace

CLI::App* AddTransform(CLI::App& rApp, TransformArgs& rArgs)
{
    CLI::App* pCommand =
        rApp.add_subcommand("transform", "Map measured projections onto the grid of a tilt series");
    pCommand->add_option("--measured", rArgs.strMeasured, "Measured projections, MRC")
        ->type_name("FILE")
        ->required();
    pCommand->add_option("-o,--output", rArgs.strOutput, "The aligned stack, MRC")
        ->type_name("FILE")
        ->required();
    pCommand->add_option("--size", rArgs.strSize, "X,Y of the output, pixels [as measured]")
        ->check(Check(ParseSizes));
    AddAlignmentOptions(*pCommand, rArgs.aAlignment);
    AddServerOptions(*pCommand, rArgs.aServer);
    AddReportOptions(*pCommand, rArgs.aReport);
    pCommand->footer(
        "Examples:\n"
        "  talven transform --measured raw.mrc --matrices shifts.txt -o ts.mrc\n"
        "  talven transform --measured raw.mrc --matrix 0.9962,-0.0872,0.0872,0.9962,3.5,-2 \\\n"
        "      --size 1000,1000 --log --beam 850 -o ts.mrc");
    return pCommand;
}

CLI::App* AddCompare(CLI::App& rApp, CompareArgs& rArgs)
{
    CLI::App* pCommand = rApp.add_subcommand(
        "compare", "Tell how well measured projections agree with aligned ones");
    pCommand->add_option("--measured", rArgs.strMeasured, "Measured projections, MRC")
        ->type_name("FILE")
        ->required();
    pCommand->add_option("--aligned", rArgs.strAligned, "Aligned projections, one for each, MRC")
        ->type_name("FILE")
        ->required();
    CLI::Option* pSearch =
        pCommand
            ->add_option("--search", rArgs.iSearch,
                         "Find the shift of every section, within so many pixels in x and y")
            ->check(CLI::Range(1, 10000));
    pCommand
        ->add_option("--write-matrices", rArgs.strWriteMatrices,
                     "The matrices with the shifts found, for talven transform")
        ->type_name("FILE")
        ->needs(pSearch);
    AddAlignmentOptions(*pCommand, rArgs.aAlignment);
    AddServerOptions(*pCommand, rArgs.aServer);
    AddReportOptions(*pCommand, rArgs.aReport);
    pCommand->footer(
        "Examples:\n"
        "  talven reproject --volume rec.mrc --angles ts.tlt -o again.mrc\n"
        "  talven compare --measured raw.mrc --aligned again.mrc --search 20 \\\n"
        "      --write-matrices shifts.txt\n"
        "  talven transform --measured raw.mrc --matrices shifts.txt -o ts.mrc");
    return pCommand;
}

CLI::App* AddView(CLI::App& rApp, ViewArgs& rArgs)
{
    CLI::App* pCommand = rApp.add_subcommand("view", "Draw slices of a volume or stack");
    pCommand->add_option("input", rArgs.strInput, "Volume or stack, MRC")
        ->type_name("FILE")
        ->required();
    pCommand->add_option("-o,--output", rArgs.strOutput, "The picture, PNG")
        ->type_name("FILE")
        ->required();
    pCommand->add_option("--axis", rArgs.strAxis, "The axis across the slices")
        ->check(CLI::IsMember({"x", "y", "z"}))
        ->capture_default_str();
    pCommand
        ->add_option("--slices", rArgs.strSlices,
                     "Slices counted from 1, such as 3,7-9 [the middle one]")
        ->type_name("SLICES")
        ->check(Check(ParseViews));
    pCommand
        ->add_option("--contrast", rArgs.strContrast,
                     "Percentiles of the pixels shown that are black and white")
        ->capture_default_str();
    pCommand->add_option("--width", rArgs.iWidth, "Of the picture, pixels at most")
        ->check(CLI::Range(100, 30000))
        ->capture_default_str();
    AddReportOptions(*pCommand, rArgs.aReport);
    pCommand->footer(
        "Examples:\n"
        "  talven view rec.mrc -o middle.png\n"
        "  talven view rec.mrc --axis y --slices 100,120,140 --contrast 1,99 -o slices.png");
    return pCommand;
}

}  // namespace talven
