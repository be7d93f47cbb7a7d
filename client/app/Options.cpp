#include "Options.h"

#include <algorithm>

#include "Lists.h"

namespace talven
{
namespace
{

const std::vector<std::string> g_vstrMethods = {"sart", "em", "bp"};  // as EMethod

bool ParseBox(const std::string& strText, std::optional<WeightBox>& rBox, std::string& rError)
{
    std::vector<double> vdBox;
    if (!ParseNumbers(strText, 4, vdBox, rError)) return false;
    const auto At = [&vdBox](std::size_t i) { return static_cast<float>(vdBox[i]); };
    rBox = {At(0), At(1), At(2), At(3)};
    return true;
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
    return rApp.add_option("--backend", rBackend, "auto, cuda, cuda-exact or host")
        ->check(CLI::IsMember({"auto", "cuda", "cuda-exact", "host"}));
}

const char* GetMethodName(EMethod eMethod)
{
    return g_vstrMethods[static_cast<std::size_t>(eMethod)].c_str();
}

void AddMethod(CLI::App& rApp, ReconRequest& rRequest, std::string& rInitial)
{
    rApp.option_defaults()->group("Method");
    rApp.add_option_function<std::string>(
            "--method",
            [&rRequest](const std::string& strMethod)
            {
                const auto pFound =
                    std::find(g_vstrMethods.begin(), g_vstrMethods.end(), strMethod);
                rRequest.eMethod = static_cast<EMethod>(pFound - g_vstrMethods.begin());
            },
            "sart, em or bp (plain back projection)")
        ->check(CLI::IsMember(g_vstrMethods))
        ->default_str("sart");
    rApp.add_option("--iterations", rRequest.iIterations, "Iterations of sart or em")
        ->check(CLI::Range(1, 100000))
        ->capture_default_str();
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
    AddFile(rApp, "--initial-volume", rInitial, "Start from this volume instead of zeros");
    AddViews(rApp, rRequest);
    rApp.option_defaults()->group("Options");
}

}  // namespace talven
