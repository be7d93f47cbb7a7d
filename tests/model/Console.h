#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>

/// What a server prints while it serves one client.
class CConsole
{
public:
    /// \param rOutput  the file it prints to; empty: nobody knows
    explicit CConsole(const std::filesystem::path& rOutput) : m_aOutput(rOutput) {}

    /// Text since the last call.
    std::optional<std::string> Take()
    {
        if (m_aOutput.empty()) return std::nullopt;
        std::ifstream aFile(m_aOutput);
        aFile.seekg(static_cast<std::streamoff>(m_tTaken));
        std::string strText{std::istreambuf_iterator<char>(aFile), {}};
        m_tTaken += strText.size();
        return strText;
    }

    /// Forgets what is there and empties the file when it has grown large, which only the client
    /// that is being served may do.
    void Trim()
    {
        constexpr std::uintmax_t ulMost = 4 << 20;
        std::error_code aIgnored;
        if (std::filesystem::file_size(m_aOutput, aIgnored) > ulMost)
            std::filesystem::resize_file(m_aOutput, 0, aIgnored);
        m_tTaken = std::filesystem::file_size(m_aOutput, aIgnored);
    }

private:
    std::filesystem::path m_aOutput;
    std::size_t m_tTaken = 0;
};
