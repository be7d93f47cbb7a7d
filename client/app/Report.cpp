#include "Report.h"

#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <utility>

namespace talven
{
namespace
{

void ShowOnTerminal(const std::string& strText)
{
    std::fprintf(stderr, "\r%s\x1b[K", strText.c_str());
    std::fflush(stderr);
}

}  // namespace

CReport::CReport(const ReportOptions& rOptions)
    : m_bLines(!rOptions.bQuiet && !rOptions.bJson),
      m_bProgress(!rOptions.bQuiet && isatty(STDERR_FILENO) == 1),
      m_bJson(rOptions.bJson)
{
}

void CReport::PrintLine(const std::string& strLine) const
{
    if (!m_bLines) return;
    std::puts(strLine.c_str());
    std::fflush(stdout);
}

double CStopwatch::GetSeconds() const
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_tStart).count();
}

CProgressBar::CProgressBar(const CReport& rReport, std::string strTitle, int iTotal,
                           std::uint64_t ulBytesEach)
    : m_bShown(rReport.ShowsProgress()),
      m_strTitle(std::move(strTitle)),
      m_iTotal(iTotal),
      m_dBytesEach(static_cast<double>(ulBytesEach))
{
}

CProgressBar::~CProgressBar()
{
    if (m_bShown) ShowOnTerminal("");
}

void CProgressBar::Step(int iDone)
{
    const double dSeconds = m_aWatch.GetSeconds();
    if (!m_bShown || (dSeconds - m_dLast < 0.1 && iDone != m_iTotal)) return;
    m_dLast = dSeconds;
    constexpr int iWidth = 30;
    const int iFilled = static_cast<int>(std::int64_t(iWidth) * iDone / m_iTotal);
    const double dRate = dSeconds > 0 ? iDone * m_dBytesEach / dSeconds / 1e6 : 0;
    ShowOnTerminal(Format("%-10s [%s%s] %3d %%  %.0f MB/s", m_strTitle.c_str(),
                          std::string(std::size_t(iFilled), '#').c_str(),
                          std::string(std::size_t(iWidth - iFilled), '.').c_str(),
                          static_cast<int>(100LL * iDone / m_iTotal), dRate));
}

CElapsedTime::CElapsedTime(const CReport& rReport, const std::string& strTitle)
{
    if (rReport.ShowsProgress()) m_aThread = std::thread([this, strTitle] { mShow(strTitle); });
}

CElapsedTime::~CElapsedTime()
{
    if (!m_aThread.joinable()) return;
    {
        const std::lock_guard aLock(m_aMutex);
        m_bEnd = true;
    }
    m_aCondition.notify_one();
    m_aThread.join();
    ShowOnTerminal("");
}

void CElapsedTime::mShow(const std::string& strTitle)
{
    std::unique_lock aLock(m_aMutex);
    while (!m_aCondition.wait_for(aLock, std::chrono::seconds(1), [this] { return m_bEnd; }))
        ShowOnTerminal(strTitle + Format("  %.0f s", m_aWatch.GetSeconds()));
}

std::string FormatBytes(std::uint64_t ulBytes)
{
    const auto dBytes = static_cast<double>(ulBytes);
    if (dBytes >= 0x1p30) return Format("%.1f GiB", dBytes / 0x1p30);
    if (dBytes >= 0x1p20) return Format("%.0f MiB", dBytes / 0x1p20);
    return Format("%.0f kiB", dBytes / 0x1p10);
}

std::string FormatSeconds(double dSeconds)
{
    if (dSeconds < 10) return Format("%.2f s", dSeconds);
    if (dSeconds < 60) return Format("%.1f s", dSeconds);
    const auto iSeconds = std::lround(dSeconds);
    if (iSeconds < 3600) return Format("%ld min %02ld s", iSeconds / 60, iSeconds % 60);
    return Format("%ld h %02ld min", iSeconds / 3600, iSeconds / 60 % 60);
}

std::string Format(const char* pcFormat, ...)
{
    std::array<char, 1024> acText;
    std::va_list aArgs;
    va_start(aArgs, pcFormat);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): it does not know va_start of g++
    std::vsnprintf(acText.data(), acText.size(), pcFormat, aArgs);
    va_end(aArgs);
    return acText.data();
}

}  // namespace talven
