#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace talven::python
{

/// A thread that does the work of Python's threads, one piece at a time.
///
/// It lives as long as the session: a private server ends with the thread that started it. The
/// thread that waits for a piece looks after Python's signals meanwhile.
class CJobThread
{
public:
    CJobThread() : m_aThread([this] { mRun(); }) {}
    ~CJobThread();
    CJobThread(const CJobThread&) = delete;
    CJobThread& operator=(const CJobThread&) = delete;

    /// Returns when rWork has been done there. With the GIL, which is free meanwhile.
    /// \param rLook  is called here twenty times a second, with the GIL
    void Run(const std::function<void()>& rWork, const std::function<void()>& rLook);

private:
    void mRun();

    std::mutex m_aMutex;
    std::condition_variable m_aWanted, m_aDone;
    const std::function<void()>* m_pWork = nullptr;
    bool m_bEnd = false;
    std::thread m_aThread;  // last: it uses the others
};

}  // namespace talven::python
