#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "tests/oracle/JobOracle.h"

/// What the server should hold for its client after the requests so far.
struct Model
{
    Images aStack, aVolume, aMeasured;
    std::vector<float> vfAngles;
    std::vector<std::uint32_t> vuiList;
    EMethod eMethod = EMethod::eBackProj;
    std::uint32_t uiIterations = 1, uiSets = 1;
    std::vector<std::uint32_t> vuiSetSize;
    std::vector<float> vfRelax;
    std::optional<OracleBox> aBox;
    std::uint32_t uiInterval = 0;
    std::array<int, 3> aiKernel = {0, 0, 0};
    std::vector<float> vfKernel;
    std::vector<std::vector<float>> vvfStat;              ///< R-factor pairs of each iteration
    std::optional<std::array<std::uint32_t, 8>> auiSums;  ///< last comparison of this client

    /// Whether the server carries such a job out; it refuses it otherwise.
    bool CanRun(bool bReproject) const;
    bool HasSlab() const;  ///< the box, or the volume without one, counts as endless
    TestJob MakeJob(bool bReproject) const;
    TestData MakeData() const;
};

/// Missing pixels, by the limit that the protocol states.
inline bool IsMissing(float fPixel)
{
    return double(fPixel) < -1e15;
}
