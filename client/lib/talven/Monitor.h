#pragma once

#include <cstdint>
#include <string>

namespace talven
{

/// Follows a job, and can end it. All of it is called from the thread that runs the job.
class CMonitor
{
public:
    virtual ~CMonitor() = default;
    /// A phase begins, such as "upload": iCount images of ulBytesEach; 0 images: nobody knows how
    /// long it takes.
    virtual void Begin(const std::string& /*strPhase*/, int /*iCount*/,
                       std::uint64_t /*ulBytesEach*/)
    {
    }
    virtual void Step(int /*iDone*/) {}                   ///< so many images of the phase are done
    virtual void Note(const std::string& /*strText*/) {}  ///< something to show beside the phase
    virtual void End() {}                                 ///< the phase has ended, in whatever way
    /// Whether the job shall end; asked for between images.
    virtual bool IsStopped() const { return false; }
    /// From here on, or no longer, the job can end early and keep what it has: then the first wish
    /// for the end is IsEnough(), the second one IsStopped().
    virtual void SetKeeping(bool /*bKeeping*/) {}
    virtual bool IsEnough() const { return false; }
    /// A descriptor that becomes readable with that, so that a wait for the server ends, too; -1:
    /// none.
    virtual int GetStopFd() const { return -1; }
};

/// A phase, as long as this object lives.
class CPhase
{
public:
    CPhase(CMonitor& rMonitor, const std::string& strPhase, int iCount = 0,
           std::uint64_t ulBytesEach = 0)
        : m_rMonitor(rMonitor)
    {
        m_rMonitor.Begin(strPhase, iCount, ulBytesEach);
    }
    ~CPhase() { m_rMonitor.End(); }
    CPhase(const CPhase&) = delete;
    CPhase& operator=(const CPhase&) = delete;
    void Step(int iDone) { m_rMonitor.Step(iDone); }
    void Note(const std::string& strText) { m_rMonitor.Note(strText); }

private:
    CMonitor& m_rMonitor;
};

}  // namespace talven
