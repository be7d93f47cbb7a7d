#include "server/Data/Recon/HolderMemory.h"

#include <algorithm>

#include "Util/Util_Memory.h"
#include "Util/Util_Volume.h"
#include "server/Data/Recon/MProjData.h"
#include "server/Data/Recon/ProjData.h"
#include "server/Data/Recon/VolData.h"
#include "server/Data/Refuse.h"
#include "server/Data/RemotePacket.h"

Extents::Extents(const CRemotePacket& rPacket)
    : uiX(rPacket.GetNthField(4)), uiY(rPacket.GetNthField(5)), uiZ(rPacket.GetNthField(6))
{
}

bool Extents::Check(const char* pcWhat, std::string& rReason) const
{
    if (uiX > 0 && uiY > 0 && uiZ > 0 && Util_Volume::FitsVoxelLimit(uiX, uiY, uiZ)) return true;
    return Refuse(rReason, "%s of %u x %u x %u, must be at least 1 each and below 2^31 together",
                  pcWhat, uiX, uiY, uiZ);
}

std::unique_ptr<Util_Volume> Extents::MakeVolume() const
{
    auto pVolume = std::make_unique<Util_Volume>();
    pVolume->SetSize(static_cast<int>(uiX), static_cast<int>(uiY), static_cast<int>(uiZ));
    return pVolume;
}

CRequestPlan PlanSlice(Util_Volume& rVolume, std::uint32_t uiSlice, const CRemotePacket& rPacket)
{
    const int iX = rVolume.GetSizeX(), iY = rVolume.GetSizeY(), iZ = rVolume.GetSizeZ();
    const std::uint32_t uiBytes = rPacket.GetOptSize();
    const std::uint64_t ulMost = std::uint64_t{4} * iX * iY;
    if (uiSlice >= static_cast<std::uint32_t>(iZ))
        return CRequestPlan::Refuse("image %u of %d", uiSlice, iZ);
    if (uiBytes > ulMost)
        return CRequestPlan::Refuse("%u bytes of data, %d x %d take %llu", uiBytes, iX, iY,
                                    static_cast<unsigned long long>(ulMost));
    auto* const pSlice = rVolume.GetSliceXY(static_cast<int>(uiSlice));
    return CRequestPlan(CRequestPlan::Target{{{reinterpret_cast<std::byte*>(pSlice), uiBytes}}});
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
