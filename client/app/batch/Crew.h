#pragma once

#include <sys/types.h>

#include <deque>
#include <string>
#include <vector>

#include "Report.h"
#include "batch/Manifest.h"

namespace talven
{

/// Runs all tasks of a batch that are not done, on this machine or some servers, each attempt as a
/// process of its own.
///
/// A task whose attempt may do another time is tried again, three times in all, elsewhere where
/// there is somewhere else. A server that fails three times in a row is left alone.
class CCrew
{
public:
    /// Both outlive this.
    CCrew(const CBatchManifest& rManifest, CReport& rReport)
        : m_rManifest(rManifest), m_rReport(rReport)
    {
    }
    ~CCrew();
    CCrew(const CCrew&) = delete;
    CCrew& operator=(const CCrew&) = delete;

    /// One task at a time runs there. \param vstrOptions  of `talven batch run`
    void AddPlace(std::vector<std::string> vstrOptions)
    {
        m_aPlaces.push_back({std::move(vstrOptions)});
    }
    [[nodiscard]] bool Run();
    /// Tasks that were done by this call.
    int GetRunCount() const { return m_iDone; }
    /// Whether what is left may do another time.
    bool MayRetry() const { return m_bRetry; }
    const std::string& GetError() const { return m_strError; }

private:
    struct Place
    {
        std::vector<std::string> vstrOptions;
        pid_t iChild = -1;
        int iErrors = -1;  // file with what the child says
        int iTask = -1;
        int iInARow = 0;  // failures
    };
    std::deque<int>::iterator mFindTask(const Place& rPlace);
    bool mStart(Place& rPlace, int iTask);
    void mReap(Place& rPlace);
    void mEnd(Place& rPlace, int iExit);
    void mShow();
    void mStopAll();

    const CBatchManifest& m_rManifest;
    CReport& m_rReport;
    std::vector<Place> m_aPlaces;
    std::deque<int> m_aWaiting;
    std::vector<int> m_viAttempts;           // of each task, here
    std::vector<const Place*> m_apFailedAt;  // each task, the last time
    int m_iDone = 0, m_iRunning = 0, m_iFailed = 0;
    bool m_bHopeless = false;  // a task failed for good
    bool m_bRetry = false;
    std::string m_strLastError, m_strError;
};

}  // namespace talven
