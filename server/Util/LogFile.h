#pragma once

#include <mutex>
#include <string>

#include "Util/Util_Singleton.h"

class CRemotePacket;

/// Lines about the sessions, on standard output and in HOME/temp/gpu<date>.log when that can be
/// opened. Main thread only, but for FinishLine.
class CLogFile : public Util_Singleton<CLogFile>
{
public:
    CLogFile() { mOpenFile(); }
    ~CLogFile();

    /// Waits until the line that is being written is whole and lets no other begin: the process
    /// ends now. Any thread. Waits a fifth of a second at most: a console that nobody reads may
    /// hold a line for ever.
    static void FinishLine();

    void LogInfo(const char* pcText);  ///< one line
    void LogTime();                    ///< current date and time
    void LogClientPacket(const CRemotePacket* pPacket);
    void RspClientPacket(const CRemotePacket* pPacket);

private:
    void mOpenFile();
    void mWriteFile(const char* pcText);
    void mLogPacket(const char* pcWhat, const CRemotePacket* pPacket);

    static std::timed_mutex m_aLineMutex;  // held while a line is written
    int m_iFile = -1;                      // -1: standard output only
    bool m_bFailed = false;                // the last line is missing or cut off, and this was said
    bool m_bCutOff = false;                // the file ends in the middle of a line
};
