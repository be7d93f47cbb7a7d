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

void CReport::SetKeeping(bool bKeeping)
{
    CInterrupt::SetKeeping(bKeeping && m_rOptions.bKeep);
}

void CReport::Begin(const std::string& strPhase, int iCount, std::uint64_t ulBytesEach)
{
    End();
    m_bShown = !m_rOptions.bQuiet && isatty(STDERR_FILENO) == 1;
    m_strPhase = strPhase;
    m_strNote.clear();
    m_iCount = iCount;
    m_iDone = 0;
    m_dBytesEach = static_cast<double>(ulBytesEach);
    m_dLast = -1;
    m_aWatch = CStopwatch();
    m_bEnd = false;
    if (m_bShown && ulBytesEach == 0) m_aThread = std::thread([this] { mShowSeconds(); });
}

/// A phase that does not move images shows how long it has taken, and will.
void CReport::mShowSeconds()
{
    std::unique_lock aLock(m_aMutex);
    while (!m_aCondition.wait_for(aLock, std::chrono::seconds(1), [this] { return m_bEnd; }))
    {
        const double dSeconds = m_aWatch.GetSeconds();
        std::string strText =
            m_iCount > 0 ? mDrawBar(m_iDone, dSeconds) : m_strPhase + Format("  %.0f s", dSeconds);
        if (IsEnough()) strText += "; ends with this iteration, Ctrl-C again drops it";
        ShowOnTerminal(strText);
    }
}

std::string CReport::mDrawBar(int iDone, double dSeconds) const
{
    constexpr int iWidth = 30;
    const int iFilled = static_cast<int>(std::int64_t(iWidth) * iDone / m_iCount);
    const std::string strBar = Format("%-10s [%s%s] %3d %%  ", m_strPhase.c_str(),
                                      std::string(std::size_t(iFilled), '#').c_str(),
                                      std::string(std::size_t(iWidth - iFilled), '.').c_str(),
                                      static_cast<int>(100LL * iDone / m_iCount));
    if (m_dBytesEach > 0)
        return strBar +
               Format("%.0f MB/s", dSeconds > 0 ? iDone * m_dBytesEach / dSeconds / 1e6 : 0);
    if (iDone == 0) return strBar + FormatSeconds(dSeconds);
    return strBar + Format("%d of %d, %s, %s left", iDone, m_iCount, m_strNote.c_str(),
                           FormatSeconds(dSeconds * (m_iCount - iDone) / iDone).c_str());
}

void CReport::Note(const std::string& strText)
{
    const std::lock_guard aLock(m_aMutex);
    m_strNote = strText;
}

void CReport::Step(int iDone)
{
    const double dSeconds = m_aWatch.GetSeconds();
    const std::lock_guard aLock(m_aMutex);
    m_iDone = iDone;
    if (!m_bShown || (dSeconds - m_dLast < 0.1 && iDone != m_iCount)) return;
    m_dLast = dSeconds;
    ShowOnTerminal(mDrawBar(iDone, dSeconds));
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
