#include "Report.h"

#include <unistd.h>

#include <cstdio>

#include "talven/Text.h"

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

void CReport::PrintLine(const std::string& strLine) const
{
    if (m_rOptions.bQuiet || m_rOptions.bJson) return;
    std::puts(strLine.c_str());
    std::fflush(stdout);
}

void CReport::Begin(const std::string& strPhase, int iCount, std::uint64_t ulBytesEach)
{
    End();
    m_bShown = !m_rOptions.bQuiet && isatty(STDERR_FILENO) == 1;
    m_strPhase = strPhase;
    m_iCount = iCount;
    m_dBytesEach = static_cast<double>(ulBytesEach);
    m_dLast = -1;
    m_aWatch = CStopwatch();
    m_bEnd = false;
    if (m_bShown && iCount == 0) m_aThread = std::thread([this] { mShowSeconds(); });
}

void CReport::mShowSeconds()
{
    std::unique_lock aLock(m_aMutex);
    while (!m_aCondition.wait_for(aLock, std::chrono::seconds(1), [this] { return m_bEnd; }))
        ShowOnTerminal(m_strPhase + Format("  %.0f s", m_aWatch.GetSeconds()));
}

void CReport::Step(int iDone)
{
    const double dSeconds = m_aWatch.GetSeconds();
    if (!m_bShown || (dSeconds - m_dLast < 0.1 && iDone != m_iCount)) return;
    m_dLast = dSeconds;
    constexpr int iWidth = 30;
    const int iFilled = static_cast<int>(std::int64_t(iWidth) * iDone / m_iCount);
    const double dRate = dSeconds > 0 ? iDone * m_dBytesEach / dSeconds / 1e6 : 0;
    ShowOnTerminal(Format("%-10s [%s%s] %3d %%  %.0f MB/s", m_strPhase.c_str(),
                          std::string(std::size_t(iFilled), '#').c_str(),
                          std::string(std::size_t(iWidth - iFilled), '.').c_str(),
                          static_cast<int>(100LL * iDone / m_iCount), dRate));
}

void CReport::End()
{
    if (!m_bShown) return;
    m_bShown = false;
    if (m_aThread.joinable())
    {
        {
            const std::lock_guard aLock(m_aMutex);
            m_bEnd = true;
        }
        m_aCondition.notify_one();
        m_aThread.join();
    }
    ShowOnTerminal("");
}

}  // namespace talven
