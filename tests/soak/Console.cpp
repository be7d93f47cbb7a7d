#include "tests/soak/Console.h"

#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

CConsole::CConsole(const fs::path& rHome) : m_aHome(rHome), m_aOutput(rHome / "output.txt") {}

std::string CConsole::Take()
{
    std::ifstream aFile(m_aOutput);
    aFile.seekg(static_cast<std::streamoff>(m_tTaken));
    std::ostringstream aText;
    aText << aFile.rdbuf();
    m_tTaken += aText.str().size();
    return aText.str();
}

void CConsole::Trim()
{
    constexpr std::uintmax_t ulMost = 4 << 20;
    std::error_code aIgnored;
    if (fs::file_size(m_aOutput, aIgnored) > ulMost) fs::resize_file(m_aOutput, 0, aIgnored);
    for (const auto& rLog : fs::directory_iterator(m_aHome / "temp", aIgnored))
        if (rLog.file_size() > ulMost) fs::resize_file(rLog.path(), 0, aIgnored);
    m_tTaken = fs::file_size(m_aOutput, aIgnored);
}
