#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "talven/MrcReader.h"

namespace talven::test
{

using Floats = std::vector<float>;
using Words = std::vector<std::uint32_t>;

/// A directory for one test, removed with everything in it.
class CTempDir
{
public:
    CTempDir() { EXPECT_NE(mkdtemp(m_strPath.data()), nullptr); }
    ~CTempDir() { std::filesystem::remove_all(m_strPath); }
    CTempDir(const CTempDir&) = delete;
    CTempDir& operator=(const CTempDir&) = delete;
    std::string operator/(const std::string& strName) const { return m_strPath + "/" + strName; }
    int CountFiles() const
    {
        return int(std::distance(std::filesystem::directory_iterator(m_strPath), {}));
    }

private:
    std::string m_strPath = testing::TempDir() + "talven-test-XXXXXX";
};

inline std::string ReadFile(const std::string& strPath)
{
    std::ifstream aFile(strPath, std::ios::binary);
    return {std::istreambuf_iterator<char>(aFile), {}};
}

inline void WriteFile(const std::string& strPath, const std::string& strBytes)
{
    std::ofstream(strPath, std::ios::binary) << strBytes;
}

/// All pixels, [z][y][x]; empty: the reader says why not.
inline Floats ReadPixels(CMrcReader& rReader, const std::string& strPath)
{
    Floats vfAll, vfSection;
    if (!rReader.Open(strPath)) return {};
    vfSection.resize(rReader.GetHeader().GetSectionPixels());
    for (int z = 0; z < rReader.GetHeader().iZ; ++z)
    {
        if (!rReader.ReadSection(z, vfSection)) return {};
        vfAll.insert(vfAll.end(), vfSection.begin(), vfSection.end());
    }
    return vfAll;
}

}  // namespace talven::test
