#pragma once

// The CUDA runtime of machines without a GPU: the part of the API that the CUDA backend uses, on
// the CPU and on purpose as late, as strict and as unhelpful as the real one may be. The backend's
// sources are compiled by g++ with this header found first; SoftCuda.h steers it from the tests.

#include "softcuda/Api.h"
#include "softcuda/DeviceCode.h"
#include "softcuda/Launch.h"
