#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace talven
{

/// An output file that appears under its name only when it is complete.
///
/// The bytes go to a temporary file in the same directory, which Commit() renames; without it the
/// destructor removes it, and a file that was there before stays as it was. A target that exists
/// and is no regular file (/dev/null) is written in place.
class CAtomicFile
{
public:
    CAtomicFile() = default;
    ~CAtomicFile() { Discard(); }
    CAtomicFile(const CAtomicFile&) = delete;
    CAtomicFile& operator=(const CAtomicFile&) = delete;

    /// \return false when the directory cannot be written or has less than ulBytes free.
    [[nodiscard]] bool Create(const std::string& strPath, std::uint64_t ulBytes = 0);
    /// Writes at an offset from the start of the file.
    [[nodiscard]] bool WriteAt(std::uint64_t ulOffset, std::span<const std::byte> pData);
    /// Brings everything to the disk and gives the file its name.
    [[nodiscard]] bool Commit();
    void Discard();

    const std::string& GetPath() const { return m_strPath; }
    const std::string& GetError() const { return m_strError; }

private:
    bool mFail(const std::string& strWhat, int iErrno);

    int m_iFile = -1;
    std::string m_strPath;       // as the caller named it
    std::string m_strTarget;     // links resolved
    std::string m_strTemporary;  // empty: the target is written in place
    std::string m_strError;
};

/// Writes a whole text file so.
[[nodiscard]] bool WriteTextFile(const std::string& strPath, const std::string& strText,
                                 std::string& rError);

}  // namespace talven
