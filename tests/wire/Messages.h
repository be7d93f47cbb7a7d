#pragma once

#include <cstdint>

// The numbers of the protocol as a client knows them, independent of the server's own list.
namespace Msg
{
inline constexpr std::uint32_t eByteOrder = 0, eCmdReply = 1, eContinuation = 2, eDataReply = 3,
                               eLog = 4, eProjGet = 5, eProjSet = 6, eProjSize = 7, eQuit = 8,
                               eReconstruct = 9, eReconStatGet = 10, eReproject = 11,
                               eServerProp = 12, eVolGet = 13, eVolSet = 14, eVolSize = 15,
                               eSetOp = 16, eReconOpt = 17, eMProjSet = 18, eMProjSize = 19,
                               eTransform = 20, eTransforml = 21, eCompare = 22, eComparel = 23,
                               eCompReply = 24, eWeightOpt = 25, eCtfOpt = 26, eSmoothOpt = 27,
                               eInvalid = 10002;
}  // namespace Msg
