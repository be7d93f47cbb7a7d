#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>

/// What was checked, and how widely a result missed its oracle.
enum ECheck
{
    eBackProjected,
    eReprojected,
    eSartRun,
    eEmRun,
    eSmoothed,  ///< of the two above
    eDoubted,   ///< of all above: compared with the doubt of the oracle
    eUnjudged,  ///< of EM: beyond that doubt too, where rounding decides between 0 and 1
    eTransformed,
    eCompared,
    eRefused,
    eChecks
};

inline constexpr const char* g_apcChecks[eChecks] = {
    "back projections",   "reprojections", "SART",       "EM",       "  of them smoothed",
    "  of them in doubt", "  not judged",  "transforms", "compares", "refusals"};

/// The counts of all client processes; lies in memory that they share.
struct Tally
{
    std::atomic<std::uint64_t> ulNext = 0;  ///< session that the next free client takes
    std::atomic<std::uint64_t> ulSessions = 0;
    std::atomic<std::uint64_t> ulRequests = 0;
    std::atomic<std::uint64_t> ulClosed = 0, ulReset = 0, ulGarbage = 0;  ///< sessions cut short
    std::atomic<std::uint64_t> aulChecks[eChecks] = {};
    std::atomic<double> adError[eChecks] = {};  ///< largest, of what is tolerated
    std::atomic<bool> bStop = false;
    std::atomic<bool> bFailed = false;
    char acFailure[1024] = {};  ///< written by the first that fails

    /// Noted once, by the first that fails; all stop.
    void Fail(const std::string& strWhat)
    {
        if (!bFailed.exchange(true))
            std::snprintf(acFailure, sizeof acFailure, "%s", strWhat.c_str());
        bStop = true;
    }
    void Note(ECheck eCheck, double dError = 0)
    {
        ++aulChecks[eCheck];
        double dOld = adError[eCheck];
        while (dError > dOld && !adError[eCheck].compare_exchange_weak(dOld, dError))
        {
        }
    }
};
static_assert(std::atomic<double>::is_always_lock_free);
