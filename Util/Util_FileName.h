#pragma once

#include <string>

/// A file name split at its dots, and variants of it.
///
/// The main name is what stands before the first dot (leading dots skipped), the extension what
/// stands between the first and the second. Names of 128 bytes and more count as empty.
class Util_FileName
{
public:
    explicit Util_FileName(const char* pcName);
    const std::string& GetMainName() const { return m_strMainName; }
    const std::string& GetExtName() const { return m_strExtName; }

    /// vol.mrc and 7 give vol0007.mrc; without a main name, "test" in the home directory.
    std::string InsertSerial(int iSerial) const;
    std::string ReplaceExt(const char* pcExt) const;
    std::string AppendText(const char* pcText) const;

    /// Whole GiB free on the root file system, 0 when unknown.
    static int GetFreeDiskSpace();

private:
    std::string mWithExt(std::string strName, const std::string& strExt) const;
    std::string m_strMainName;
    std::string m_strExtName;
};
