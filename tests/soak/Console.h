#pragma once

#include <filesystem>
#include <string>

/// What the server prints while it serves one client.
class CConsole
{
public:
    explicit CConsole(const std::filesystem::path& rHome);
    /// Text since the last call.
    std::string Take();
    /// Empties what has grown large, which only the client that is being served may do.
    void Trim();

private:
    std::filesystem::path m_aHome, m_aOutput;
    std::size_t m_tTaken = 0;
};
