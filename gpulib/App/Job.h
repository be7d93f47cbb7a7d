#pragma once

#include <array>
#include <optional>
#include <span>

class CTomoVolume;
class Util_Volume;

/// The box in the X-Z plane that holds the specimen; pixels, the origin is the volume's centre.
struct WeightBox
{
    std::array<float, 2> afOrig{};  ///< centre (x, z)
    std::array<float, 2> afDim{};   ///< half size (x, z)
};

/// One reconstruction or reprojection: what goes in, how it is computed, where the result goes.
///
/// The session describes a job once, after all checks; everybody below takes the description by
/// reference and reads nothing else. All memory is borrowed until the job has ended.
struct ReconJob
{
    Util_Volume* pProjs = nullptr;    ///< tilt series [proj][y][x]; a reprojection fills it
    CTomoVolume* pTomoVol = nullptr;  ///< volume [z][y][x], shared by all workers
    bool bZero = false;  ///< nobody has written the volume: it is 0, and memory that is not there
    std::span<const float> fAngles;             ///< degrees, one per projection
    std::span<const unsigned int> uiRangeX;     ///< [proj][y][2]: first valid column, one past last
    std::span<const unsigned int> uiProjIndex;  ///< the projections that take part, by number
    std::optional<WeightBox> aBox;              ///< none: rows are not weighted by it
    unsigned int uiIterations = 1;
    unsigned int uiNumSets = 1;
    std::span<const unsigned int> uiSetSize;  ///< projections of each subset; empty: even subsets
    std::span<const float> fRelax;            ///< [iteration][subset]; empty: all 1
    const Util_Volume* pKernel =
        nullptr;                   ///< smoothing between iterations; null: workers only meet
    unsigned int uiSmoothInt = 0;  ///< iterations between smoothings; 0: never
};

/// One transform or comparison: measured projection iMProj against projection iAProj of the stack.
struct AlignJob
{
    const Util_Volume* pMProjs = nullptr;  ///< measured projections [proj][y][x]
    int iMProj = 0;
    Util_Volume* pProjs = nullptr;  ///< the stack; a transform writes projection iAProj
    int iAProj = 0;
    std::span<unsigned int> uiRangeX;  ///< valid columns of iAProj [y][2]; a transform writes them
    std::array<float, 6> afMatrix{};   ///< see TransformParams
    std::array<float, 6> afScale{};
    bool bLog = false;  ///< logarithmic scale
};

/// One worker's part of a job: a band of rows.
struct JobShare
{
    int iStartY = 0, iSizeY = 0;  ///< may be empty
    int iWorker = 0;              ///< number of the worker, from 0
    int iWorkers = 1;
    int iDevice = 0;  ///< device of the worker
};
