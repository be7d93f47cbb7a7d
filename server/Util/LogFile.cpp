#include "server/Util/LogFile.h"

#include <cstdlib>
#include <ctime>
#include <iterator>

#include "server/Data/RemotePacket.h"

std::unique_ptr<CLogFile> CLogFile::m_pInstance;

namespace
{
/// Month, day and year without padding: 5 January 2026 is 152026.
std::string GetTimeString()
{
    const std::time_t tNow = std::time(nullptr);
    std::tm aNow = {};
    localtime_r(&tNow, &aNow);
    return std::to_string(aNow.tm_mon + 1) + std::to_string(aNow.tm_mday) +
           std::to_string(aNow.tm_year + 1900);
}

const char* GetMsgName(std::uint32_t uiType)
{
    static constexpr const char* apcNames[] = {
        "BYTEORDER",  "CMDREPLY",  "CONTINUATION", "DATAREPLY",   "LOG",          "PROJGET",
        "PROJSET",    "PROJSIZE",  "QUIT",         "RECONSTRUCT", "RECONSTATGET", "REPROJECT",
        "SERVERPROP", "VOLGET",    "VOLSET",       "VOLSIZE",     "SETOP",        "RECONOPT",
        "MPROJSET",   "MPROJSIZE", "TRANSFORM",    "TRANSFORML",  "COMPARE",      "COMPAREL",
        "UNKNOWN",  // COMPREPLY has never had a name in the log
        "WEIGHTOPT",  "CTFOPT",    "SMOOTHOPT"};
    if (uiType < std::size(apcNames)) return apcNames[uiType];
    return uiType == CMsgConst::INVALID ? "INVALID" : "UNKNOWN";
}
}  // namespace

CLogFile* CLogFile::GetInstance()
{
    if (!m_pInstance) m_pInstance.reset(new CLogFile);
    return m_pInstance.get();
}

void CLogFile::mOpenFile()
{
    const char* pcHome = std::getenv("HOME");
    if (pcHome == nullptr) return;
    const std::string strPath = std::string(pcHome) + "/temp/gpu" + GetTimeString() + ".log";
    m_pFile.reset(std::fopen(strPath.c_str(), "ae"));
}

void CLogFile::LogInfo(const char* pcText)
{
    std::puts(pcText);
    if (!m_pFile) return;
    std::fprintf(m_pFile.get(), "%s\n", pcText);
    std::fflush(m_pFile.get());
}

void CLogFile::LogTime()
{
    const std::time_t tNow = std::time(nullptr);
    char acTime[32];
    if (ctime_r(&tNow, acTime) == nullptr) return;
    std::fputs(acTime, stdout);  // ends in a line end
    if (!m_pFile) return;
    std::fputs(acTime, m_pFile.get());
    std::fflush(m_pFile.get());
}

void CLogFile::LogClientPacket(const CRemotePacket* pPacket)
{
    mLogPacket("Received", pPacket);
}

void CLogFile::RspClientPacket(const CRemotePacket* pPacket)
{
    mLogPacket("Respond", pPacket);
}

void CLogFile::mLogPacket(const char* pcWhat, const CRemotePacket* pPacket)
{
    if (pPacket == nullptr) return;
    char acLine[128];
    std::snprintf(acLine, sizeof acLine, "Info: %s packet. Msg: %s, Serial: %d, OptSize: %d",
                  pcWhat, GetMsgName(pPacket->GetMsgType()), static_cast<int>(pPacket->GetSerial()),
                  static_cast<int>(pPacket->GetOptSize()));
    LogInfo(acLine);
}
