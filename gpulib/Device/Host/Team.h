#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

/// The cores of one host device: the calling thread and helpers that wait for work.
class CTeam
{
public:
    /// \param iSize  threads including the caller, >= 1; fewer when the system gives no more
    explicit CTeam(int iSize);
    ~CTeam();
    CTeam(const CTeam&) = delete;
    CTeam& operator=(const CTeam&) = delete;

    int GetSize() const { return static_cast<int>(m_vThreads.size()) + 1; }
    /// Calls fPart(i) for i = 0 .. GetSize() - 1, each on its thread, and waits for all. One
    /// caller at a time.
    void Run(const std::function<void(int)>& fPart);

private:
    void mServe(int iPart);

    std::mutex m_aMutex;  // guards what follows but the threads
    std::condition_variable m_aStart, m_aDone;
    const std::function<void(int)>* m_pfPart = nullptr;
    unsigned m_uiRound = 0;
    int m_iBusy = 0;
    bool m_bExit = false;
    std::vector<std::thread> m_vThreads;
};

/// Numbers too small for full precision count as 0 on this thread: they cost a hundred times
/// the work of others, and a slice is full of them where it fades.
void FlushSmallNumbers();
