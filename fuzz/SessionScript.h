#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// A reply that the server owes.
struct Owed
{
    std::uint32_t uiType;
    std::uint32_t uiParent;  ///< serial of the request
    bool bSwapped;           ///< in the other byte order
};

/// All that one client sends, and what it must get for it.
struct ScriptClient
{
    std::vector<std::byte> vBytes;
    std::vector<Owed> vOwed;  ///< up to the first length that lies, from where on nobody knows
    bool bComplete = true;    ///< no length lies: nothing but QUIT follows the replies above
    std::size_t tEnough = SIZE_MAX;  ///< bytes of replies after which it hangs up
};

/// Turns a fuzz input into the clients of a server, one after the other.
///
/// Bits of the first byte: 0, the rest is what one client sends, as it is; 1, the clients hang up
/// after as many headers of replies as bits 2 to 7 say. Without bit 0 the rest are records, one
/// packet each:
/// - type: below 32 itself, then 32 strange ones, then all over again;
/// - form: low 4 bits, how many fields from the fourth on follow; bit 4, the packet is a part; bits
///   5 and 6, see below;
/// - data: low 3 bits, the kind (see MakeWords()); bits 3 and 4: 0 no data, 1 as long as the
/// message
///   wants, 2 as many bytes as two bytes say, 3 as 1; bits 5 to 7: what is left over at the end;
/// - the fields (see CInput::GetField()), the two bytes of the length, the bytes of the data;
/// - if bits 5 and 6 of the form are not 0, one byte: 1, change of the length; 2, change of the
///   length that the header claims; 3, highest byte of that length.
///
/// A QUIT ends a client; the next record is the first one of the next client. Packets are written
/// in the byte order that the server expects at that point. Jobs that would take seconds are left
/// out: the sizes that make them so are not.
std::vector<ScriptClient> ReadScript(std::span<const std::uint8_t> aInput);

/// Where the records of an input begin, and its end; nothing when it has none.
std::vector<std::size_t> FindRecords(std::span<const std::uint8_t> aInput);

/// What the server is told to have: far below what real jobs need, far above what scripts hold.
constexpr std::size_t g_tScriptMemory = std::size_t{4} << 20;
