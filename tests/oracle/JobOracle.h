#pragma once

#include <array>
#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

#include "tests/oracle/Oracle.h"

// Whole jobs, all rows, by the double-precision reference.

/// Inputs of a whole job; one job is run by the library on any number of workers, or by the oracle.
struct TestJob
{
    std::string strName;
    EMethod eMethod = EMethod::eSart;
    bool bReproject = false;
    int iProjX = 37, iY = 5, iVolX = 37, iVolZ = 13;
    std::vector<float> vfAngles = {-60, -40, -20, 0, 20, 40, 60};
    int iIterations = 1;
    unsigned uiSets = 1;
    std::vector<unsigned> vuiSetSize;  // empty: even sets
    std::vector<float> vfRelax;        // empty: 1
    std::vector<unsigned> vuiList;     // empty: all
    std::vector<OracleBox> vBox;       // empty: none given
    unsigned uiInterval = 0;
    std::array<int, 3> aiKernel = {0, 0, 0};  // X, Y, Z of the smoothing kernel, 0: none
    std::vector<float> vfKernel;
    int iFailingWorker = -1;  // whose smoothing fails
    bool bZeroStart = false;  // from an empty volume
    bool bInvalid = false;    // missing columns at the sides, and whole missing rows
};

/// What a failed test calls the job.
inline void PrintTo(const TestJob& rJob, std::ostream* pStream)
{
    *pStream << rJob.strName;
}

/// Volume, stack and R-factors, before or after a job.
struct TestData
{
    std::vector<float> vfProjs;       // [proj][y][x]
    std::vector<float> vfVolume;      // [z][y][x]
    std::vector<unsigned> vuiRangeX;  // [proj][y][2]
    std::vector<double> vdRfactor;    // [iteration][list position][2]
    std::string strError;             // of the first worker that failed
};

/// The projections in use, and the sets as list positions.
std::vector<unsigned> GetList(const TestJob& rJob);
std::vector<std::pair<int, int>> GetSets(const TestJob& rJob);

/// Runs the job with the oracle; dShift and uiSeed as in OracleJob.
TestData RunOracle(const TestJob& rJob, const TestData& rStart, double dShift = 0,
                   unsigned uiSeed = 1);

/// |a - b| / |b|, infinite when a value is not finite or the sizes differ.
template <class T>
double RelativeError(const std::vector<T>& rA, const std::vector<T>& rB);
