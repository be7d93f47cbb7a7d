#pragma once

#include <cstdio>
#include <memory>
#include <string>

class CRemotePacket;

/// Lines about the sessions, on standard output and in HOME/temp/gpu<date>.log when that can be
/// opened. Main thread only.
class CLogFile
{
public:
    static CLogFile* GetInstance();
    static void DeleteInstance() { m_pInstance.reset(); }  ///< closes; the next use opens again

    void LogInfo(const char* pcText);  ///< one line
    void LogTime();                    ///< current date and time
    void LogClientPacket(const CRemotePacket* pPacket);
    void RspClientPacket(const CRemotePacket* pPacket);

private:
    struct Closer
    {
        void operator()(std::FILE* pFile) const { std::fclose(pFile); }
    };
    CLogFile() { mOpenFile(); }
    void mOpenFile();
    void mLogPacket(const char* pcWhat, const CRemotePacket* pPacket);

    static std::unique_ptr<CLogFile> m_pInstance;
    std::unique_ptr<std::FILE, Closer> m_pFile;  // null: standard output only
};
