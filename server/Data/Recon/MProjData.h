#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "server/Data/UploadTarget.h"

class CRemotePacket;
class Util_Volume;

/// The measured projections that transforms and comparisons align against: images only.
///
/// A handler that returns false or nothing has changed nothing and says why in rReason.
class CMProjData
{
public:
    static CMProjData* GetInstance();
    static void DeleteInstance();
    ~CMProjData();

    /// MPROJSIZE: fields 4, 5, 6 = X, Y, projections. Starts a stack of zeros.
    [[nodiscard]] bool HandleMProjSize(const CRemotePacket& rPacket, std::string& rReason);
    /// MPROJSET: field 4 = projection; data: pixels [y][x]; may end early. The data is received
    /// into the target.
    [[nodiscard]] std::optional<UploadTarget> HandleMProjSet(const CRemotePacket& rPacket,
                                                             std::string& rReason);

    Util_Volume* GetProjs() const { return m_pProjs.get(); }  ///< null before MPROJSIZE
    std::size_t GetBytes() const;                             ///< memory of the holder

private:
    CMProjData();
    static std::unique_ptr<CMProjData> m_pInstance;
    std::unique_ptr<Util_Volume> m_pProjs;
};
