#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

/// What is counted, and how widely a result missed its oracle.
enum ECheck
{
    eSessions,
    eRequests,
    eRefused,
    eCut,  // sessions cut short
    eBackProjected,
    eReprojected,
    eSartRun,
    eEmRun,
    eSmoothed,    // of the two above
    eDoubted,     // of all above: compared with the doubt of the oracle
    eUnjudged,    // of EM: beyond that doubt too, where rounding decides between 0 and 1
    eUnfollowed,  // inputs that no oracle follows
    eTransformed,
    eCompared,
    eChecks
};

inline constexpr const char* g_apcChecks[eChecks] = {"sessions",
                                                     "requests",
                                                     "refusals",
                                                     "cut short",
                                                     "back projections",
                                                     "reprojections",
                                                     "SART",
                                                     "EM",
                                                     "  of them smoothed",
                                                     "  of them in doubt",
                                                     "  not judged",
                                                     "not followed",
                                                     "transforms",
                                                     "compares"};

/// The counts of all clients.
struct Tally
{
    std::atomic<std::uint64_t> aulChecks[eChecks] = {};
    std::atomic<double> adError[eChecks] = {};  ///< largest, of what is tolerated
    std::atomic<bool> bStop = false;
    bool bTrace = false;  ///< prints all requests
    std::mutex aMutex;
    std::string strFailure;  ///< of the first that fails, which stops all

    void Fail(const std::string& strWhat)
    {
        const std::lock_guard aLock(aMutex);
        if (strFailure.empty()) strFailure = strWhat;
        bStop = true;
    }
    void Note(ECheck eCheck, double dError = 0)
    {
        ++aulChecks[eCheck];
        double dOld = adError[eCheck];
        while (dError > dOld && !adError[eCheck].compare_exchange_weak(dOld, dError)) continue;
    }
};
