#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "Report.h"
#include "ServerLink.h"

namespace talven
{

/// The reason why a text cannot be parsed as a CLI11 check: empty when it can.
template <class T>
std::function<std::string(const std::string&)> Check(bool (*Parse)(const std::string&, T&,
                                                                   std::string&))
{
    return [Parse](const std::string& strText)
    {
        T aValue;
        std::string strError;
        return Parse(strText, aValue, strError) ? std::string() : strError;
    };
}

void AddReportOptions(CLI::App& rApp, ReportOptions& rReport);
void AddBackendOption(CLI::App& rApp, std::string& rBackend);
void AddServerOptions(CLI::App& rApp, ServerOptions& rServer);

}  // namespace talven
