#include "server/Util/LogFile.h"

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>

#include "server/Data/Messages.h"
#include "server/Data/RemotePacket.h"

std::timed_mutex CLogFile::m_aLineMutex;

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

/// Whether the last byte of a file is no line end: the disk was full, or the machine went down.
bool EndsInALine(int iFile)
{
    const off_t tEnd = lseek(iFile, 0, SEEK_END);
    char cLast = '\n';
    return tEnd > 0 && pread(iFile, &cLast, 1, tEnd - 1) == 1 && cLast != '\n';
}

const char* GetMsgName(std::uint32_t uiType)
{
    const Message* const pMessage = FindMessage(uiType);
    if (uiType == CMsgConst::COMPREPLY) return "UNKNOWN";  // has never had a name in the log
    return pMessage ? pMessage->pcName : "UNKNOWN";
}
}  // namespace

CLogFile::~CLogFile()
{
    if (m_iFile != -1) close(m_iFile);
}

void CLogFile::FinishLine()
{
    // Never released.
    static_cast<void>(m_aLineMutex.try_lock_for(std::chrono::milliseconds(200)));
}

void CLogFile::mOpenFile()
{
    const char* pcHome = std::getenv("HOME");
    if (pcHome == nullptr) return;
    const std::string strPath = std::string(pcHome) + "/temp/gpu" + GetTimeString() + ".log";
    m_iFile = open(strPath.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    m_bCutOff = m_iFile != -1 && EndsInALine(m_iFile);
}

void CLogFile::LogInfo(const char* pcText)
{
    const std::lock_guard aLock(m_aLineMutex);
    std::puts(pcText);
    if (m_iFile != -1) mWriteFile(pcText);
}

/// A line is one system call. A full disk costs the lines that do not fit and is said once; when
/// there is room again the log goes on, on a line of its own.
void CLogFile::mWriteFile(const char* pcText)
{
    char acEnd[] = "\n";
    const std::size_t tText = std::strlen(pcText), tStart = m_bCutOff ? 1 : 0;
    const iovec aParts[] = {{acEnd, tStart}, {const_cast<char*>(pcText), tText}, {acEnd, 1}};
    const ssize_t tWritten = writev(m_iFile, aParts, std::size(aParts));
    const bool bWhole = tWritten == static_cast<ssize_t>(tStart + tText + 1);
    if (!bWhole && !m_bFailed)
        std::printf("Error: The log file cannot be written: %s.\n",
                    tWritten < 0 ? std::strerror(errno) : "no room for a whole line");
    m_bFailed = !bWhole;
    if (tWritten > 0) m_bCutOff = !bWhole;
}

void CLogFile::LogTime()
{
    const std::time_t tNow = std::time(nullptr);
    char acTime[32];
    if (ctime_r(&tNow, acTime) == nullptr) return;
    acTime[std::strcspn(acTime, "\n")] = '\0';
    LogInfo(acTime);
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
