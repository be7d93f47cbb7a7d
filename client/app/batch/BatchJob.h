#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "Reconstruct.h"
#include "batch/Manifest.h"

namespace talven
{

/// The options of `talven reconstruct` as a manifest has them, and the command that they make.
class CBatchJob
{
public:
    /// \param rOptions  of the manifest
    /// \param bPart     leaves out what is done with the whole volume: its form, further results
    /// \param vstrMore  arguments that come behind
    /// \return false: GetError() says which option is wrong
    [[nodiscard]] bool Parse(const Json& rOptions, bool bPart = false,
                             std::vector<std::string> vstrMore = {});
    CReconstructCommand& GetCommand() { return m_aCommand; }
    /// The files that the options name and the command reads.
    std::vector<std::string> ListInputs() const;
    const std::string& GetError() const { return m_strError; }

private:
    CReconstructCommand m_aCommand;
    CLI::App m_aParser;  // the command looks into it
    std::string m_strError;
};

/// The options given to a command that has those of `talven reconstruct`, files by their full
/// paths.
Json ListGivenOptions(const CLI::App& rApp);

}  // namespace talven
