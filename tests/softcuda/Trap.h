#pragma once

#include "tests/softcuda/Device.h"

namespace SoftCuda
{
/// The device whose kernel the calling thread runs.
CDevice* RunningDevice();
/// Ends the launch: the device keeps cudaErrorLaunchFailure, the reason goes to stderr.
[[gnu::format(printf, 1, 2)]] void Trap(const char* pcFormat, ...);
}  // namespace SoftCuda
