#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "talven/MrcHeader.h"

namespace talven
{

/// Reads an MRC file section by section, as floats; a stack larger than the memory can be read.
///
/// Modes 0, 1, 2, 6 and 12, both byte orders, extended headers skipped.
class CMrcReader
{
public:
    CMrcReader() = default;
    ~CMrcReader();
    CMrcReader(const CMrcReader&) = delete;
    CMrcReader& operator=(const CMrcReader&) = delete;

    /// \return false when the file cannot be read, is not an MRC file, or is shorter than its
    ///         header says; GetError() begins with its name.
    [[nodiscard]] bool Open(const std::string& strPath);
    const MrcHeader& GetHeader() const { return m_aHeader; }
    const std::string& GetPath() const { return m_strPath; }

    /// Reads section iZ, shape [y][x], X * Y floats. A value that is no finite number is an error.
    [[nodiscard]] bool ReadSection(int iZ, std::span<float> fPixels);

    const std::string& GetError() const { return m_strError; }

private:
    bool mReadAt(std::uint64_t ulOffset, std::span<std::byte> pBytes);
    void mConvert(std::span<float> fPixels) const;
    bool mCheckFinite(int iZ, std::span<const float> fPixels);
    bool mFail(const std::string& strWhat);

    int m_iFile = -1;
    std::string m_strPath;
    MrcHeader m_aHeader;
    std::vector<std::byte> m_vcSection;  // as stored, for modes other than 2
    std::string m_strError;
};

}  // namespace talven
