#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace talven::test
{

/// A directory for one test, removed with everything in it.
class CTempDir
{
public:
    CTempDir()
    {
        std::string strName = testing::TempDir() + "talven-test-XXXXXX";
        if (mkdtemp(strName.data()) == nullptr) std::abort();
        m_aPath = strName;
    }
    ~CTempDir() { std::filesystem::remove_all(m_aPath); }
    CTempDir(const CTempDir&) = delete;
    CTempDir& operator=(const CTempDir&) = delete;

    std::string operator/(const std::string& strName) const { return (m_aPath / strName).string(); }
    std::size_t CountFiles() const
    {
        return std::size_t(std::distance(std::filesystem::directory_iterator(m_aPath),
                                         std::filesystem::directory_iterator()));
    }

private:
    std::filesystem::path m_aPath;
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

}  // namespace talven::test
