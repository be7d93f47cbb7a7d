#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace talven
{

struct ReportOptions
{
    bool bQuiet = false;
    bool bJson = false;
};

/// What a command says while it works: lines on standard output unless --quiet or --json, progress
/// on standard error when that is a terminal.
class CReport
{
public:
    explicit CReport(const ReportOptions& rOptions);
    void PrintLine(const std::string& strLine) const;
    bool ShowsProgress() const { return m_bProgress; }
    bool IsJson() const { return m_bJson; }

private:
    bool m_bLines;
    bool m_bProgress;
    bool m_bJson;
};

class CStopwatch
{
public:
    double GetSeconds() const;

private:
    std::chrono::steady_clock::time_point m_tStart = std::chrono::steady_clock::now();
};

/// A bar for a transfer of a known number of images; gone when destroyed.
class CProgressBar
{
public:
    CProgressBar(const CReport& rReport, std::string strTitle, int iTotal,
                 std::uint64_t ulBytesEach);
    ~CProgressBar();
    CProgressBar(const CProgressBar&) = delete;
    CProgressBar& operator=(const CProgressBar&) = delete;
    void Step(int iDone);

private:
    bool m_bShown;
    std::string m_strTitle;
    int m_iTotal;
    double m_dBytesEach;
    double m_dLast = -1;
    CStopwatch m_aWatch;
};

/// The seconds since its start, updated once a second from a thread of its own; gone when
/// destroyed.
class CElapsedTime
{
public:
    CElapsedTime(const CReport& rReport, const std::string& strTitle);
    ~CElapsedTime();
    CElapsedTime(const CElapsedTime&) = delete;
    CElapsedTime& operator=(const CElapsedTime&) = delete;

private:
    void mShow(const std::string& strTitle);

    std::mutex m_aMutex;  // guards m_bEnd
    std::condition_variable m_aCondition;
    bool m_bEnd = false;
    CStopwatch m_aWatch;
    std::thread m_aThread;
};

/// "1.2 GiB", "340 MiB", "12 kiB".
std::string FormatBytes(std::uint64_t ulBytes);
/// "0.42 s", "12.3 s", "3 min 05 s".
std::string FormatSeconds(double dSeconds);
/// printf into a string.
[[gnu::format(printf, 1, 2)]] std::string Format(const char* pcFormat, ...);

}  // namespace talven
