#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "talven/ImageStack.h"
#include "talven/MrcHeader.h"

namespace talven
{

/// Reads an MRC file section by section, as floats; a stack larger than the memory can be read.
///
/// Modes 0, 1, 2, 6 and 12, both byte orders, extended headers skipped.
class CMrcReader : public CImageStack
{
public:
    CMrcReader() = default;
    ~CMrcReader() override;

    /// \return false when the file cannot be read, is not an MRC file, or is shorter than its
    ///         header says; GetError() begins with its name.
    [[nodiscard]] bool Open(const std::string& strPath);
    const MrcHeader& GetHeader() const { return m_aHeader; }

private:
    bool mRead(int iZ, std::span<float> fPixels) override { return mReadRows(iZ, 0, fPixels); }
    bool mReadRows(int iZ, int iY, std::span<float> fPixels) override;
    bool mReadAt(std::uint64_t ulOffset, std::span<std::byte> pBytes);
    void mConvert(std::span<float> fPixels) const;

    int m_iFile = -1;
    MrcHeader m_aHeader;
    std::vector<std::byte> m_vcStored;  // as stored, for modes other than 2
};

}  // namespace talven
