#pragma once

#include <bit>
#include <cstdint>
#include <string>
#include <vector>

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

using Words = std::vector<std::uint32_t>;

/// A request as a value; its first parameter is word 4.
struct Request
{
    std::uint32_t uiType = 0;
    Words vuiFields = {}, vuiData = {};
    std::string strTail = {};  ///< bytes behind the last whole word of the data, in no byte order

    std::uint32_t Field(std::size_t n) const
    {
        return n < 4 + vuiFields.size() ? vuiFields[n - 4] : 0;
    }
    float FieldF(std::size_t n) const { return std::bit_cast<float>(Field(n)); }
    std::uint64_t GetBytes() const { return 4 * vuiData.size() + strTail.size(); }
};

/// Bits of floats, as header fields and data carry them.
inline std::uint32_t Bits(float fValue)
{
    return std::bit_cast<std::uint32_t>(fValue);
}
inline Words ToWords(const std::vector<float>& rValues)
{
    Words vuiWords;
    for (const float fValue : rValues) vuiWords.push_back(Bits(fValue));
    return vuiWords;
}
