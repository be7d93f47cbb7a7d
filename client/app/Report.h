#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "Interrupt.h"
#include "talven/Monitor.h"

namespace talven
{

class CStopwatch
{
public:
    double GetSeconds() const
    {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_tStart).count();
    }

private:
    std::chrono::steady_clock::time_point m_tStart = std::chrono::steady_clock::now();
};

struct ReportOptions
{
    bool bQuiet = false;
    bool bJson = false;
    bool bKeep = true;  ///< the first Ctrl-C may keep what there is so far
};

/// What a command says while it works: lines on standard output unless --quiet or --json, progress
/// on standard error when that is a terminal: a bar for a phase of a known number of images, the
/// seconds for another. Ctrl-C stops what it follows.
class CReport : public CMonitor
{
public:
    /// \param rOptions  may change until the first word; outlives this object
    explicit CReport(const ReportOptions& rOptions) : m_rOptions(rOptions) {}
    ~CReport() override { End(); }
    CReport(const CReport&) = delete;
    CReport& operator=(const CReport&) = delete;
    void PrintLine(const std::string& strLine) const;

    void Begin(const std::string& strPhase, int iCount, std::uint64_t ulBytesEach) override;
    void Step(int iDone) override;
    void Note(const std::string& strText) override;
    void End() override;
    bool IsStopped() const override { return CInterrupt::IsSet(); }
    void SetKeeping(bool bKeeping) override;
    bool IsEnough() const override { return CInterrupt::IsEnough(); }
    int GetStopFd() const override { return CInterrupt::GetFd(); }

private:
    void mShowSeconds();
    std::string mDrawBar(int iDone, double dSeconds) const;

    const ReportOptions& m_rOptions;
    bool m_bShown = false;  // a phase is on the terminal
    std::string m_strPhase, m_strNote;
    int m_iCount = 0, m_iDone = 0;
    double m_dBytesEach = 0;
    double m_dLast = 0;  // seconds when it was drawn
    CStopwatch m_aWatch;
    std::mutex m_aMutex;  // guards m_bEnd, m_iDone, m_strNote
    std::condition_variable m_aCondition;
    bool m_bEnd = false;
    std::thread m_aThread;  // draws the seconds
};

}  // namespace talven
