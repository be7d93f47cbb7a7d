#pragma once

#include "tests/soak/Options.h"
#include "tests/soak/Tally.h"
#include "tests/soak/Vitals.h"

/// The server at some points of a run.
struct Course
{
    Vitals aStart, aHundred, aHighest, aEnd;
    double dSeconds = 1e-3;
};

/// Fails when descriptors or threads are not what they were, or memory has grown.
void CheckVitals(const Options& rOptions, const Course& rCourse, Tally& rTally);
/// Fails when more results than a few could not be judged.
void CheckCounts(Tally& rTally);
/// The table at the end.
void Print(const Options& rOptions, const Course& rCourse, const Tally& rTally);
