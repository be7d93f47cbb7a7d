// Takes the place of the CUDA backend in a build without it.

#include "gpulib/Device/Backend.h"

std::unique_ptr<CBackend> MakeCudaBackend(int, std::string& rReason, unsigned)
{
    rReason = "built without CUDA";
    return nullptr;
}
