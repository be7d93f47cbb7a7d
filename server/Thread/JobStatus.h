#pragma once

#include <string>

/// Whether the job that runs has failed on any worker, and why. Any thread.
class CJobStatus
{
public:
    /// Before a job starts; the rendezvous of the shared volume starts afresh, too.
    static void Reset();
    /// Notes a failure; the first reason is kept. Workers that wait for this one are released.
    static void Fail(const std::string& rReason);
    static bool HasFailed();
    static std::string GetReason();  ///< empty when the job has not failed
};
