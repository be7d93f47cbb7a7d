#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "talven/ReconPlan.h"
#include "talven/VolumeFile.h"

namespace talven
{

/// Groups of options that commands share, and how one of them is read.

/// An option whose text Parse(strText, rError) takes; text that it rejects is wrong usage.
template <class F>
CLI::Option* AddParsed(CLI::App& rApp, const char* pcName, const char* pcType, F Parse,
                       const char* pcText)
{
    const auto Take = [Parse, pcName](const std::string& strText)
    {
        std::string strError;
        if (!Parse(strText, strError)) throw CLI::ValidationError(pcName, strError);
    };
    return rApp.add_option_function<std::string>(pcName, Take, pcText)->type_name(pcType);
}
/// One whose text Parse(strText, rValue, rError) turns into a value.
template <class T>
CLI::Option* AddParsed(CLI::App& rApp, const char* pcName, const char* pcType, T& rValue,
                       bool (*Parse)(const std::string&, T&, std::string&), const char* pcText)
{
    return AddParsed(
        rApp, pcName, pcType,
        [Parse, &rValue](const std::string& strText, std::string& rError)
        { return Parse(strText, rValue, rError); },
        pcText);
}

/// A file.
CLI::Option* AddFile(CLI::App& rApp, const char* pcNames, std::string& rPath, const char* pcText);
/// --backend.
CLI::Option* AddBackend(CLI::App& rApp, std::string& rBackend);
/// "sart", as --method takes it.
const char* GetMethodName(const ReconRequest& rRequest);
/// Heading of the options that align raw views.
inline constexpr const char* g_pcAlignment = "Alignment of raw views";
/// --xf, --tilt-axis, --bin and --size.
/// \param rXf  file with the maps
void AddAlignment(CLI::App& rApp, AlignRequest& rRequest, std::string& rXf);
/// --angle-offset, --shift-z and --x-tilt.
void AddTilting(CLI::App& rApp, ReconRequest& rRequest);
/// How a volume is stored.
void AddForm(CLI::App& rApp, VolumeForm& rForm);
/// --method.
void AddMethodName(CLI::App& rApp, ReconRequest& rRequest);
/// The options that say how a volume is reconstructed, and from which views.
/// \param rInitial  file with the volume to start from
void AddMethod(CLI::App& rApp, ReconRequest& rRequest, std::string& rInitial);

}  // namespace talven
