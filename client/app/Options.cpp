#include "Options.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

#include "Lists.h"
#include "talven/Text.h"

namespace talven
{
namespace
{

const std::vector<std::string> g_vstrMethods = {"sart", "em", "bp", "wbp"};  // as EMethod, filtered
const std::vector<std::string> g_vstrFilters = {"ramp", "shepp-logan", "cosine", "hamming", "hann"};

std::size_t Find(const std::vector<std::string>& rNames, const std::string& strName)
{
    return std::size_t(std::find(rNames.begin(), rNames.end(), strName) - rNames.begin());
}

bool ParseCutoff(const std::string& strText, FilterRequest& rFilter, std::string& rError)
{
    std::vector<double> vdNumbers;
    const std::size_t tNumbers = strText.find(',') == std::string::npos ? 1 : 2;
    if (!ParseNumbers(strText, tNumbers, vdNumbers, rError)) return false;
    rFilter.dCutoff = vdNumbers[0];
    rFilter.dFalloff = tNumbers > 1 ? vdNumbers[1] : 0;
    if (rFilter.dCutoff > 0 && rFilter.dCutoff <= 0.5 && rFilter.dFalloff >= 0) return true;
    rError = "expected a frequency up to 0.5 cycles per pixel, and a fall of 0 or more";
    return false;
}

bool ParseBox(const std::string& strText, std::optional<WeightBox>& rBox, std::string& rError)
{
    std::vector<double> vdBox;
    if (!ParseNumbers(strText, 4, vdBox, rError)) return false;
    const auto At = [&vdBox](std::size_t i) { return static_cast<float>(vdBox[i]); };
    rBox = {At(0), At(1), At(2), At(3)};
    return true;
}

bool ParseRows(const std::string& strText, std::optional<RowRange>& rRows, std::string& rError)
{
    RowRange aRows;
    int iRead = 0;
    if (std::sscanf(strText.c_str(), "%9d:%9d%n", &aRows.iFirst, &aRows.iEnd, &iRead) != 2 ||
        std::size_t(iRead) != strText.size() || aRows.iFirst < 0 || aRows.iEnd <= aRows.iFirst)
        return Fail(rError, "expected A:B, such as 0:128, found \"" + Show(strText) + "\"");
    rRows = aRows;
    return true;
}

bool ParseHalo(const std::string& strText, int& rHalo, std::string& rError)
{
    const char* pcEnd = strText.data() + strText.size();
    const auto [pcStop, eError] = std::from_chars(strText.data(), pcEnd, rHalo);
    if (eError == std::errc() && pcStop == pcEnd && rHalo >= 0) return true;
    rHalo = -1;
    return strText == "auto" ||
           Fail(rError, "expected auto or a number of rows, found \"" + Show(strText) + "\"");
}

void AddSubsets(CLI::App& rApp, ReconRequest& rRequest)
{
    CLI::Option* pSubsets = rApp.add_option("--subsets", rRequest.iSubsets,
                                            "Subsets per iteration [one per six projections]")
                                ->check(CLI::PositiveNumber);
    AddParsed(rApp, "--subset-sizes", "LIST", rRequest.vuiSubsetSizes, ParseSizes,
              "Sizes of the subsets, such as 21,20,20")
        ->excludes(pSubsets);
    AddParsed(rApp, "--relaxation", "FACTORS", rRequest.aRelax, ParseRelaxation,
              "R for all iterations, R1,R2,... for each, or START:DECAY")
        ->default_str("1");
    rApp.add_option_function<std::string>(
            "--order",
            [&rRequest](const std::string& strOrder)
            { rRequest.bInterleave = strOrder == "interleaved"; },
            "Subsets spread over the tilt range (interleaved) or cut from the stack as it is "
            "(given)")
        ->check(CLI::IsMember({"interleaved", "given"}))
        ->default_str("interleaved");
}

void AddFilter(CLI::App& rApp, ReconRequest& rRequest)
{
    FilterRequest& rFilter = rRequest.aFilter;
    const std::vector<CLI::Option*> vpOptions = {
        rApp.add_option_function<std::string>(
                "--filter",
                [&rFilter](const std::string& strName)
                { rFilter.eWindow = static_cast<EWindow>(Find(g_vstrFilters, strName)); },
                "Filter of wbp: the ramp, or the ramp times a window")
            ->check(CLI::IsMember(g_vstrFilters))
            ->default_str("ramp"),
        AddParsed(rApp, "--cutoff", "F[,FALLOFF]", rFilter, ParseCutoff,
                  "Frequency from where the filter ends, cycles per pixel, as a Gaussian of "
                  "standard deviation FALLOFF [0.5,0]"),
        rApp.add_option("--sirt-like", rFilter.iSirtLike,
                        "Weigh frequencies as N iterations of SIRT do")
            ->check(CLI::Range(1, 100000))
            ->type_name("N")};
    const auto Check = [vpOptions, &rRequest]
    {
        for (const CLI::Option* pOption : vpOptions)
            if (pOption->count() > 0 && !rRequest.bFilter)
                throw CLI::ValidationError(pOption->get_name(), "is for --method wbp");
    };
    rApp.final_callback(Check);
}

void AddViews(CLI::App& rApp, ReconRequest& rRequest)
{
    CLI::Option* pExclude = AddParsed(rApp, "--exclude", "VIEWS", rRequest.viExclude, ParseViews,
                                      "Leave out these views, counted from 1, such as 3,7-9");
    AddParsed(rApp, "--include", "VIEWS", rRequest.viInclude, ParseViews,
              "Use only these views, counted from 1")
        ->excludes(pExclude);
}

}  // namespace

CLI::Option* AddFile(CLI::App& rApp, const char* pcNames, std::string& rPath, const char* pcText)
{
    return rApp.add_option(pcNames, rPath, pcText)->type_name("FILE");
}

CLI::Option* AddBackend(CLI::App& rApp, std::string& rBackend)
{
    return rApp.add_option("--backend", rBackend, "auto, cuda or host")
        ->check(CLI::IsMember({"auto", "cuda", "host"}));
}

const char* GetMethodName(const ReconRequest& rRequest)
{
    return rRequest.bFilter ? "wbp"
                            : g_vstrMethods[static_cast<std::size_t>(rRequest.eMethod)].c_str();
}

void AddAlignment(CLI::App& rApp, AlignRequest& rRequest, std::string& rXf)
{
    rApp.option_defaults()->group(g_pcAlignment);
    AddFile(rApp, "--xf", rXf, "A11 A12 A21 A22 DX DY of one view a line (.xf)");
    rApp.add_option("--tilt-axis", rRequest.dTiltAxis,
                    "Angle from the images' +Y axis to the tilt axis, degrees, counterclockwise "
                    "with Y up; counts after --xf")
        ->check(CLI::Range(-360.0, 360.0))
        ->type_name("DEG");
    rApp.add_option("--bin", rRequest.iBin, "Means of N x N pixels; all sizes are of these then")
        ->check(CLI::Range(1, 64))
        ->type_name("N");
    AddParsed(rApp, "--size", "X,Y", rRequest.aSize, ParseSize,
              "Of the aligned views, pixels [of the raw ones]");
    rApp.option_defaults()->group("Options");
}

void AddTilting(CLI::App& rApp, ReconRequest& rRequest)
{
    rApp.option_defaults()->group(g_pcAlignment);
    rApp.add_option("--angle-offset", rRequest.dAngleOffset, "Added to all angles, degrees")
        ->check(CLI::Range(-180.0, 180.0));
    rApp.add_option("--shift-z", rRequest.aAlign.dShiftZ,
                    "Move the specimen by so many voxels towards higher slices")
        ->check(CLI::Range(-1e5, 1e5));
    rApp.add_option("--x-tilt", rRequest.aAlign.dTiltX,
                    "The specimen rises towards +Y by this angle, degrees: lay it flat")
        ->check(CLI::Range(-60.0, 60.0))
        ->type_name("DEG");
    rApp.option_defaults()->group("Options");
}

void AddForm(CLI::App& rApp, VolumeForm& rForm)
{
    rApp.option_defaults()->group("Form of the volume");
    rApp.add_option_function<std::string>(
            "--orientation",
            [&rForm](const std::string& strAxes) { rForm.bXzy = strAxes == "xzy"; },
            "xyz: sections are XY slices; xzy: XZ slices, one for each y")
        ->check(CLI::IsMember({"xyz", "xzy"}))
        ->default_str("xyz");
    rApp.add_flag("--flip-z", rForm.bFlipZ, "The highest slice first");
    AddParsed(
        rApp, "--trim", "X,Y,Z",
        [&rForm](const std::string& strText, std::string& rError)
        {
            std::vector<std::uint32_t> vuiSize;
            if (!ParseSizes(strText, vuiSize, rError)) return false;
            if (vuiSize.size() != 3 || std::ranges::max(vuiSize) > 1u << 30)
                return Fail(rError, "expected X,Y,Z, found \"" + strText + "\"");
            for (std::size_t i = 0; i < 3; ++i) rForm.aiSize[i] = static_cast<int>(vuiSize[i]);
            return true;
        },
        "The middle so many voxels");
    rApp.add_option_function<int>(
            "--mode", [&rForm](int iMode) { rForm.eMode = static_cast<EMrcMode>(iMode); },
            "0: bytes, 1: 16 bits, 2: floats, 12: half floats")
        ->check(CLI::IsMember({0, 1, 2, 12}))
        ->default_str("2");
    AddParsed(
        rApp, "--scale", "LOW,HIGH",
        [&rForm](const std::string& strText, std::string& rError)
        {
            std::vector<double> vdRange;
            if (!ParseNumbers(strText, 2, vdRange, rError)) return false;
            rForm.aRange = {vdRange[0], vdRange[1]};
            return vdRange[0] < vdRange[1] || Fail(rError, "expected the lower value first");
        },
        "Values that become the least and the greatest number of modes 0 and 1 [the volume's]");
    rApp.option_defaults()->group("Options");
}

void AddMethodName(CLI::App& rApp, ReconRequest& rRequest)
{
    rApp.add_option_function<std::string>(
            "--method",
            [&rRequest](const std::string& strMethod)
            {
                rRequest.bFilter = strMethod == "wbp";
                rRequest.eMethod =
                    static_cast<EMethod>(Find(g_vstrMethods, rRequest.bFilter ? "bp" : strMethod));
            },
            "sart, em, wbp (weighted back projection, of filtered rows) or bp (plain back "
            "projection); all but wbp keep the volume from falling below 0")
        ->check(CLI::IsMember(g_vstrMethods))
        ->default_str("sart");
}

void AddMethod(CLI::App& rApp, ReconRequest& rRequest, std::string& rInitial)
{
    rApp.option_defaults()->group("Method");
    AddMethodName(rApp, rRequest);
    rApp.add_option("--iterations", rRequest.iIterations, "Iterations of sart or em")
        ->check(CLI::Range(1, 100000))
        ->capture_default_str();
    rApp.add_flag("--unconstrained", rRequest.bUnconstrained, "Voxels of sart may fall below 0");
    AddFilter(rApp, rRequest);
    AddSubsets(rApp, rRequest);
    AddParsed(rApp, "--weight-box", "BOX", rRequest.aBox, ParseBox,
              "CX,CZ,HX,HZ: centre and half sizes of the box that holds the specimen, voxels "
              "from the centre of the volume; weights rays by their path in it");
    AddParsed(
        rApp, "--smooth", "SIGMA",
        [&rRequest](const std::string& strText, std::string& rError) {
            return ParseSmoothing(strText, rRequest.dSmoothSigma, rRequest.iSmoothInterval, rError);
        },
        "SIGMA[,INTERVAL]: smooth the volume with a Gaussian of SIGMA voxels after every "
        "INTERVAL iterations [1]");
    rApp.add_option("--stop-when", rRequest.dStopGain,
                    "End sart when an iteration lowers the R-factor by less than this share")
        ->check(CLI::Range(1e-9, 1.0))
        ->type_name("GAIN");
    rApp.add_option("--checkpoint", rRequest.iCheckpoint,
                    "Write the volume so far after every N iterations of sart")
        ->check(CLI::PositiveNumber)
        ->type_name("N");
    AddParsed(
        rApp, "--rows", "A:B",
        [&rRequest](const std::string& strText, std::string& rError)
        { return ParseRows(strText, rRequest.aRows, rError); },
        "Rows A to B - 1 of the volume along Y, from 0: a part that equals the same rows of the "
        "whole");
    AddParsed(
        rApp, "--halo", "auto|N",
        [&rRequest](const std::string& strText, std::string& rError)
        { return ParseHalo(strText, rRequest.iHalo, rError); },
        "Rows made beside those of --rows, for --smooth; auto: as many as it takes")
        ->default_str("auto");
    AddFile(rApp, "--initial-volume", rInitial, "Start from this volume instead of zeros");
    AddViews(rApp, rRequest);
    rApp.option_defaults()->group("Options");
}

}  // namespace talven
