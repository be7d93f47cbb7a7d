#include "fuzz/SessionScript.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "Util/Util_SwapByte.h"
#include "fuzz/ScriptData.h"
#include "server/Data/MsgConst.h"

namespace
{
constexpr std::size_t g_tMaxBytes = std::size_t{1} << 19;  // of one client
constexpr double g_dMaxWork = 4e6;                         // samples of one input's jobs

using Header = std::array<std::uint32_t, 16>;

/// Writes one client after the other. Keeps what it needs of the sizes sent so far: the last ones,
/// which tell how long the data of images has to be, and the largest that the server may have
/// taken, which bound the work of a job.
class CScriptWriter
{
public:
    void TakeRecord(CInput& rInput);
    std::vector<ScriptClient> Finish();

private:
    std::uint64_t mNaturalBytes(const Header& rHeader) const;
    std::size_t mHeadWords(const Header& rHeader) const;
    void mNoteSizes(const Header& rHeader);
    bool mIsTooMuch(const Header& rHeader);
    void mAppend(const Header& rHeader, std::span<const std::byte> aData);
    void mOwe(const Header& rHeader);
    void mEndClient();
    bool mIsOpen() const { return m_aClient.bComplete; }

    std::vector<ScriptClient> m_vClients;
    ScriptClient m_aClient;
    bool m_bSwap = false;  // what the server does with our packets
    std::uint32_t m_uiSerial = 0;
    std::array<std::uint32_t, 3> m_auiStack{}, m_auiVolume{}, m_auiMeasured{};
    struct Most  // of one client; elements
    {
        double dStack = 0, dVolume = 0, dMeasured = 0, dKernel = 0, dList = 1, dIterations = 1;
    };
    Most m_aMost;
    double m_dWork = 0;
};

std::uint64_t Product(std::uint64_t ulA, std::uint64_t ulB)
{
    std::uint64_t ulProduct = 0;
    return __builtin_mul_overflow(ulA, ulB, &ulProduct) ? UINT64_MAX / 8 : ulProduct;
}

std::uint64_t CScriptWriter::mNaturalBytes(const Header& rHeader) const
{
    const std::uint64_t ulF5 = rHeader[5], ulF6 = rHeader[6];
    switch (rHeader[0])
    {
    case CMsgConst::PROJSIZE:
        return 8 * ulF6;
    case CMsgConst::PROJSET:
        return 4 * Product(m_auiStack[1], std::uint64_t{m_auiStack[0]} + 2);
    case CMsgConst::VOLSET:
        return 4 * Product(m_auiVolume[0], m_auiVolume[1]);
    case CMsgConst::MPROJSET:
        return 4 * Product(m_auiMeasured[0], m_auiMeasured[1]);
    case CMsgConst::SETOP:
        return 4 * ulF5;
    case CMsgConst::RECONOPT:
        return 4 * Product(ulF6, ulF5 + 1);
    case CMsgConst::TRANSFORML:
        return 8;
    case CMsgConst::COMPARE:
        return 4;
    case CMsgConst::COMPAREL:
        return 16;
    case CMsgConst::SMOOTHOPT:
        return 4 * Product(Product(ulF5, ulF6), rHeader[7]);
    default:
        return 0;
    }
}

std::size_t CScriptWriter::mHeadWords(const Header& rHeader) const
{
    if (rHeader[0] == CMsgConst::RECONOPT) return rHeader[6];
    if (rHeader[0] == CMsgConst::PROJSET) return std::size_t{2} * m_auiStack[1];
    return 0;
}

void CScriptWriter::mNoteSizes(const Header& rHeader)
{
    constexpr double dMemory = g_tScriptMemory / 4;
    const std::array<std::uint32_t, 3> auiSize = {rHeader[4], rHeader[5], rHeader[6]};
    const double dF5 = rHeader[5], dF6 = rHeader[6];
    const double dSize = rHeader[4] * dF5 * dF6;
    const auto NoteSize = [&](std::array<std::uint32_t, 3>& rLast, double& rMost)
    {
        rLast = auiSize;
        if (dSize <= dMemory) rMost = std::max(rMost, dSize);
    };
    constexpr double dWords = g_tMaxBytes / 4;  // more cannot have been sent
    switch (rHeader[0])
    {
    case CMsgConst::PROJSIZE:
        NoteSize(m_auiStack, m_aMost.dStack);
        if (dSize <= dMemory) m_aMost.dList = std::max(m_aMost.dList, dF6);
        break;
    case CMsgConst::VOLSIZE:
        NoteSize(m_auiVolume, m_aMost.dVolume);
        break;
    case CMsgConst::MPROJSIZE:
        NoteSize(m_auiMeasured, m_aMost.dMeasured);
        break;
    case CMsgConst::SETOP:
        if (dF5 <= dWords) m_aMost.dList = std::max(m_aMost.dList, dF5);
        break;
    case CMsgConst::RECONOPT:
        if (dF5 * dF6 <= dWords)
            m_aMost.dIterations = std::max(m_aMost.dIterations, dF5 * (1 + dF6 / 16));
        break;
    case CMsgConst::SMOOTHOPT:
        if (dF5 < 256 && dF6 < 256 && rHeader[7] < 256)  // whatever comes of its values
            m_aMost.dKernel = std::max(m_aMost.dKernel, dF5 * dF6 * rHeader[7]);
        break;
    default:
        break;
    }
}

bool CScriptWriter::mIsTooMuch(const Header& rHeader)
{
    double dWork = 0;
    switch (rHeader[0])
    {
    case CMsgConst::RECONSTRUCT:
        dWork = m_aMost.dIterations * ((m_aMost.dVolume + m_aMost.dStack) * m_aMost.dList +
                                       m_aMost.dVolume * m_aMost.dKernel);
        break;
    case CMsgConst::REPROJECT:
        dWork = (m_aMost.dVolume + m_aMost.dStack) * m_aMost.dList;
        break;
    case CMsgConst::TRANSFORM:
    case CMsgConst::TRANSFORML:
    case CMsgConst::COMPARE:
    case CMsgConst::COMPAREL:
        dWork = m_aMost.dStack + m_aMost.dMeasured;
        break;
    case CMsgConst::PROJGET:
    case CMsgConst::VOLGET:
        dWork = (m_aMost.dStack + m_aMost.dVolume) / 4;
        break;
    default:
        break;
    }
    if (m_dWork + dWork > g_dMaxWork) return true;
    m_dWork += dWork;
    return false;
}

void CScriptWriter::mAppend(const Header& rHeader, std::span<const std::byte> aData)
{
    const auto Write = [this](const void* pvBytes, std::size_t tBytes)
    {
        const auto* pBytes = static_cast<const std::byte*>(pvBytes);
        m_aClient.vBytes.insert(m_aClient.vBytes.end(), pBytes, pBytes + tBytes);
    };
    const std::size_t tStart = m_aClient.vBytes.size();
    Write(rHeader.data(), sizeof rHeader);
    Write(aData.data(), aData.size());
    if (!m_bSwap) return;
    for (std::size_t i = tStart; i + 4 <= m_aClient.vBytes.size(); i += 4)
        std::reverse(&m_aClient.vBytes[i], &m_aClient.vBytes[i] + 4);
}

void CScriptWriter::mOwe(const Header& rHeader)
{
    std::uint32_t uiType = CMsgConst::CMDREPLY;
    switch (rHeader[0])
    {
    case CMsgConst::PROJGET:
    case CMsgConst::VOLGET:
    case CMsgConst::RECONSTATGET:
    case CMsgConst::SERVERPROP:
    case CMsgConst::COMPREPLY:
        uiType = CMsgConst::DATAREPLY;
        break;
    case CMsgConst::COMPARE:
    case CMsgConst::COMPAREL:
        uiType = CMsgConst::COMPREPLY;
        break;
    case CMsgConst::BYTEORDER:
        m_bSwap = rHeader[4] != 0x1234ABCD;
        return;
    case CMsgConst::CMDREPLY:
    case CMsgConst::CONTINUATION:
    case CMsgConst::DATAREPLY:
    case CMsgConst::LOG:
    case CMsgConst::CTFOPT:
    case CMsgConst::QUIT:
        return;
    default:
        if (rHeader[0] > CMsgConst::SMOOTHOPT) return;
    }
    m_aClient.vOwed.push_back({uiType, rHeader[1], m_bSwap});
}

void CScriptWriter::mEndClient()
{
    m_vClients.push_back(std::move(m_aClient));
    m_aClient = {};
    m_aMost = {};
    m_bSwap = false;
}

std::uint32_t TypeOf(std::uint8_t uiCode)
{
    constexpr std::array<std::uint32_t, 4> auiStrange = {CMsgConst::NORESPONSE, CMsgConst::INVALID,
                                                         0xFFFFFFFF, 0x10007};
    return uiCode % 64 < 32 ? uiCode % 32 : auiStrange[uiCode % 4];
}

void CScriptWriter::TakeRecord(CInput& rInput)
{
    Header aHeader{};
    aHeader[0] = TypeOf(rInput.GetByte());
    aHeader[1] = m_uiSerial++;
    const std::uint8_t uiForm = rInput.GetByte(), uiData = rInput.GetByte();
    aHeader[2] = uiForm >> 4 & 1;
    const std::size_t tFields = std::min(uiForm & 15, 12);
    for (std::size_t i = 4; i < 4 + tFields; ++i) aHeader[i] = rInput.GetField();

    std::uint64_t ulBytes = 0;
    if ((uiData >> 3 & 3) != 0)
        ulBytes = (uiData >> 3 & 3) == 2 ? rInput.GetWord(2) : mNaturalBytes(aHeader);
    const int iLie = uiForm >> 5 & 3;
    const std::uint32_t uiLie = iLie != 0 ? rInput.GetByte() : 0;
    const auto iChange = static_cast<std::int8_t>(uiLie);
    if (iLie == 1)
        ulBytes = iChange < 0 && ulBytes < std::uint64_t(-iChange) ? 0 : ulBytes + iChange;

    const std::size_t tRoom = g_tMaxBytes - std::min(g_tMaxBytes, m_aClient.vBytes.size());
    const std::size_t tBytes = std::min<std::uint64_t>(ulBytes, tRoom);
    const std::vector<std::uint32_t> vuiWords =
        MakeWords(rInput, uiData, (tBytes + 3) / 4, mHeadWords(aHeader));
    aHeader[3] = static_cast<std::uint32_t>(std::min<std::uint64_t>(ulBytes, UINT32_MAX));
    if (iLie == 2) aHeader[3] += static_cast<std::uint32_t>(iChange);
    if (iLie == 3) aHeader[3] = uiLie << 24;

    mNoteSizes(aHeader);
    if (mIsTooMuch(aHeader)) return;
    const bool bTrue = aHeader[3] == tBytes;
    mAppend(aHeader, std::as_bytes(std::span(vuiWords)).first(tBytes));
    if (!bTrue) m_aClient.bComplete = false;
    if (mIsOpen()) mOwe(aHeader);
    if (aHeader[0] == CMsgConst::QUIT || aHeader[0] == CMsgConst::INVALID) mEndClient();
}

std::vector<ScriptClient> CScriptWriter::Finish()
{
    if (!m_aClient.vBytes.empty() || m_vClients.empty()) mEndClient();
    return std::move(m_vClients);
}
}  // namespace

std::vector<ScriptClient> ReadScript(std::span<const std::uint8_t> aInput)
{
    CInput aRecords(aInput);
    const std::uint8_t uiMode = aRecords.GetByte();
    const std::size_t tEnough = (uiMode & 2) != 0 ? sizeof(Header) * (uiMode >> 2) : SIZE_MAX;
    if ((uiMode & 1) != 0)
    {
        ScriptClient aClient;
        aClient.tEnough = tEnough;
        aClient.bComplete = false;
        const auto aBytes = std::as_bytes(aInput.subspan(1));
        aClient.vBytes.assign(aBytes.begin(), aBytes.end());
        return {aClient};
    }
    CScriptWriter aWriter;
    while (!aRecords.IsEmpty()) aWriter.TakeRecord(aRecords);
    std::vector<ScriptClient> vClients = aWriter.Finish();
    for (ScriptClient& rClient : vClients) rClient.tEnough = tEnough;
    return vClients;
}

std::vector<std::size_t> FindRecords(std::span<const std::uint8_t> aInput)
{
    CInput aRecords(aInput);
    if ((aRecords.GetByte() & 1) != 0) return {};
    CScriptWriter aWriter;
    std::vector<std::size_t> vtStarts = {aInput.size() - aRecords.GetLeft()};
    while (!aRecords.IsEmpty())
    {
        aWriter.TakeRecord(aRecords);
        vtStarts.push_back(aInput.size() - aRecords.GetLeft());
    }
    return vtStarts;
}
