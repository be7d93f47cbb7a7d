// Changes of session scripts that keep the other records whole: bytes that go astray in the middle
// turn all that follows into other packets. Half of the changes are libFuzzer's own.

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "fuzz/SessionScript.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* pucData, std::size_t tBytes,
                                        std::size_t tMaxBytes);

namespace
{
using Input = std::vector<std::uint8_t>;

/// One change of one record, drawn from a seed.
class CRecordMutator
{
public:
    CRecordMutator(Input& rInput, unsigned int uiSeed)
        : m_rInput(rInput), m_aRandom(uiSeed), m_vtStarts(FindRecords(rInput))
    {
    }
    /// False: there is no record, or it is libFuzzer's turn.
    bool DoIt()
    {
        if (m_vtStarts.size() < 2 || mDraw(2) == 0) return false;
        const std::size_t tRecord = mDraw(m_vtStarts.size() - 1);
        switch (mDraw(8))
        {
        case 0:
            mErase(tRecord);
            break;
        case 1:
            mInsert(mGet(tRecord));
            break;
        case 2:
            mMove(tRecord);
            break;
        case 3:
            mInsert(mMakeRecord());
            break;
        default:
            mChange(tRecord);
            break;
        }
        return true;
    }

private:
    std::size_t mDraw(std::size_t tBelow) { return m_aRandom() % tBelow; }
    auto mBegin(std::size_t tRecord)
    {
        return m_rInput.begin() + std::ptrdiff_t(m_vtStarts[tRecord]);
    }
    Input mGet(std::size_t tRecord) { return {mBegin(tRecord), mBegin(tRecord + 1)}; }
    void mErase(std::size_t tRecord) { m_rInput.erase(mBegin(tRecord), mBegin(tRecord + 1)); }
    void mInsert(const Input& rRecord)
    {
        m_rInput.insert(mBegin(mDraw(m_vtStarts.size())), rRecord.begin(), rRecord.end());
    }
    void mMove(std::size_t tRecord)
    {
        const Input vRecord = mGet(tRecord);
        mErase(tRecord);
        m_vtStarts = FindRecords(m_rInput);
        mInsert(vRecord);
    }
    Input mMakeRecord()
    {
        const std::size_t tFields = mDraw(5);
        Input vRecord = {std::uint8_t(mDraw(28)), std::uint8_t(tFields), std::uint8_t(mDraw(16))};
        for (std::size_t i = 0; i < tFields + 4; ++i) vRecord.push_back(std::uint8_t(mDraw(9)));
        return vRecord;
    }
    void mChange(std::size_t tRecord)
    {
        Input vRecord = mGet(tRecord);
        const std::size_t tBytes = vRecord.size();
        vRecord.resize(tBytes + 8);
        vRecord.resize(LLVMFuzzerMutate(vRecord.data(), tBytes, vRecord.size()));
        mErase(tRecord);
        m_rInput.insert(mBegin(tRecord), vRecord.begin(), vRecord.end());
    }

    Input& m_rInput;
    std::minstd_rand m_aRandom;
    std::vector<std::size_t> m_vtStarts;  // and the end
};
}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* pucData, std::size_t tBytes,
                                               std::size_t tMaxBytes, unsigned int uiSeed)
{
    Input vInput(pucData, pucData + tBytes);
    if (!CRecordMutator(vInput, uiSeed).DoIt() || vInput.size() > tMaxBytes)
        return LLVMFuzzerMutate(pucData, tBytes, tMaxBytes);
    std::ranges::copy(vInput, pucData);
    return vInput.size();
}
