#include "server/Data/Recon/HolderMemory.h"

#include <algorithm>
#include <limits>

#include "Util/Util_Memory.h"
#include "Util/Util_Volume.h"
#include "server/Data/Recon/MProjData.h"
#include "server/Data/Recon/ProjData.h"
#include "server/Data/Recon/VolData.h"
#include "server/Data/Refuse.h"

std::uint32_t ClampToUint32(std::uint64_t ulBytes)
{
    return static_cast<std::uint32_t>(
        std::min<std::uint64_t>(ulBytes, std::numeric_limits<std::uint32_t>::max()));
}

bool CheckExtents(const char* pcWhat, std::uint32_t uiX, std::uint32_t uiY, std::uint32_t uiZ,
                  std::string& rReason)
{
    if (uiX > 0 && uiY > 0 && uiZ > 0 && Util_Volume::FitsVoxelLimit(uiX, uiY, uiZ)) return true;
    return Refuse(rReason, "%s of %u x %u x %u, must be at least 1 each and below 2^31 together",
                  pcWhat, uiX, uiY, uiZ);
}

std::optional<UploadTarget> GetSliceTarget(Util_Volume& rVolume, std::uint32_t uiSlice,
                                           std::uint32_t uiBytes, std::string& rReason)
{
    const int iX = rVolume.GetSizeX(), iY = rVolume.GetSizeY(), iZ = rVolume.GetSizeZ();
    const std::uint64_t ulMost = std::uint64_t{4} * iX * iY;
    if (uiSlice >= static_cast<std::uint32_t>(iZ))
        Refuse(rReason, "image %u of %d", uiSlice, iZ);
    else if (uiBytes > ulMost)
        Refuse(rReason, "%u bytes of data, %d x %d take %llu", uiBytes, iX, iY,
               static_cast<unsigned long long>(ulMost));
    else
        return UploadTarget{
            {}, {reinterpret_cast<std::byte*>(rVolume.GetSliceXY(int(uiSlice))), uiBytes}};
    return {};
}

bool CheckMemory(std::size_t tOld, std::uint64_t ulNew, std::string& rReason)
{
    const std::uint64_t ulOthers = CProjData::GetInstance()->GetBytes() +
                                   CMProjData::GetInstance()->GetBytes() +
                                   CVolData::GetInstance()->GetBytes() - tOld;
    const std::uint64_t ulAvailable = Util_Memory::GetAvailable();
    const std::uint64_t ulResident = Util_Memory::GetResident();
    const std::uint64_t ulMost = ulAvailable + std::min(ulResident, UINT64_MAX - ulAvailable);
    if (ulNew <= ulMost && ulOthers <= ulMost - ulNew) return true;
    return Refuse(rReason, "needs %llu MiB beside %llu MiB in use, the machine has %llu MiB left",
                  static_cast<unsigned long long>(ulNew >> 20),
                  static_cast<unsigned long long>(ulOthers >> 20),
                  static_cast<unsigned long long>(ulAvailable >> 20));
}
