#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "Util/Util_Property.h"
#include "server/Config/ConfigFile.h"
#include "server/Config/GpuConfig.h"

namespace
{
constexpr const char* g_apcVariables[] = {
    "TALVEN_PORT", "TALVEN_MEMORY_PCT",   "TALVEN_BUSY_GPUS",   "TALVEN_BACKEND",
    "TALVEN_BIND", "TALVEN_IDLE_TIMEOUT", "TALVEN_DEBUG_VOLUME"};

/// Runs in a directory of its own and without settings in the environment.
class Config : public testing::Test
{
protected:
    void SetUp() override
    {
        for (const char* pcName : g_apcVariables) unsetenv(pcName);
        std::string strPath = testing::TempDir() + "talven-config-XXXXXX";
        ASSERT_NE(mkdtemp(strPath.data()), nullptr);
        m_aDirectory = strPath;
        m_aFormer = std::filesystem::current_path();
        std::filesystem::current_path(m_aDirectory);
    }
    void TearDown() override
    {
        for (const char* pcName : g_apcVariables) unsetenv(pcName);
        std::filesystem::current_path(m_aFormer);
        std::filesystem::remove_all(m_aDirectory);
    }
    static CConfigFile Load(const std::map<std::string, std::string>& rVariables,
                            const std::string& strFile)
    {
        for (const char* pcName : g_apcVariables) unsetenv(pcName);
        for (const auto& [strName, strValue] : rVariables)
            setenv(strName.c_str(), strValue.c_str(), 1);
        std::ofstream("config.gpu") << strFile;
        CConfigFile aConfig;
        aConfig.Load();
        return aConfig;
    }
    std::filesystem::path m_aDirectory, m_aFormer;
};

TEST_F(Config, DebugVolume)
{
    EXPECT_EQ(std::filesystem::path(Load({}, "").GetDebugVolume()).filename(), "talven-volume.mrc");
    EXPECT_EQ(Load({{"TALVEN_DEBUG_VOLUME", "a.mrc"}}, "").GetDebugVolume(), "a.mrc");
    EXPECT_EQ(Load({{"TALVEN_DEBUG_VOLUME", "a.mrc"}}, "DebugVolume=b.mrc").GetDebugVolume(),
              "b.mrc");
}

TEST_F(Config, FileWinsOverTheEnvironment)
{
    const std::map<std::string, std::string> aEnvironment = {
        {"TALVEN_PORT", "7000"}, {"TALVEN_MEMORY_PCT", "0.7"}, {"TALVEN_BIND", "127.0.0.1"}};
    const struct
    {
        const char* pcFile;
        int iPort;
        float fPercent;
    } aCases[] = {
        {"", 7000, 0.7f},
        {"\n", 0, 0.2f},  // one slot, no key: a file with entries
        {"MemoryPercentage=0.6", 0, 0.6f},
        {"ServerPort=8000\r\n\r\nMemoryPercentage = 50\r\n", 8000, 0.8f},
        {"server port = 8000.9\nServerPort=1", 8000, 0.2f},
        {"ServerPort=1e300\nMemoryPercentage=nan", 2147483647, 0.2f},
        {"ServerPort=80=90\nMemoryPercentage=0.35", 80, 0.35f},
        {"# ServerPort=8000", 0, 0.2f},
    };
    for (const auto& rCase : aCases)
    {
        SCOPED_TRACE(rCase.pcFile);
        const CConfigFile aConfig = Load(aEnvironment, rCase.pcFile);
        EXPECT_EQ(aConfig.GetServerPort(), rCase.iPort);
        EXPECT_EQ(aConfig.GetMemoryPercent(), rCase.fPercent);
        EXPECT_EQ(aConfig.GetBindAddress(), *rCase.pcFile == '\0' ? "127.0.0.1" : "");
    }
}

TEST_F(Config, VariablesMustBeWholeNumbers)
{
    for (const auto& [pcPort, iPort] :
         {std::pair("7000", 7000), {"7000 ", 20248}, {"70x", 20248}, {"", 20248}, {" -3", -3}})
        EXPECT_EQ(Load({{"TALVEN_PORT", pcPort}}, "").GetServerPort(), iPort) << pcPort;
    for (const auto& [pcFraction, fFraction] :
         {std::pair("0.35", 0.35f), {"0.1", 0.2f}, {"0.9", 0.8f}, {"0.3 ", 0.5f}, {"nan", 0.2f}})
        EXPECT_EQ(Load({{"TALVEN_MEMORY_PCT", pcFraction}}, "").GetMemoryPercent(), fFraction)
            << pcFraction;
    for (const auto& [pcSeconds, fSeconds] :
         {std::pair("2.5", 2.5f), {"-1", 0.0f}, {"nan", 0.0f}, {"1e99", 1e6f}, {"3s", 0.0f}})
        EXPECT_EQ(Load({{"TALVEN_IDLE_TIMEOUT", pcSeconds}}, "").GetIdleTimeout(), fSeconds)
            << pcSeconds;
}

TEST_F(Config, BusyListEndsAtTheFirstNumberOutOfRange)
{
    const struct
    {
        const char* pcList;
        int iCount;
        std::vector<int> viUsed;  // of 18 devices
    } aCases[] = {
        {"1, 3", 2, {0, 2, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}},
        {"1,20,3", 1, {0, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}},
        {"-1,2", 0, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}},
        {"x", 1, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}},
        {"0 0,0", 3, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}},
        {"0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,0", 16, {}},
    };
    for (const auto& rCase : aCases)
    {
        SCOPED_TRACE(rCase.pcList);
        const CConfigFile aConfig = Load({{"TALVEN_BUSY_GPUS", rCase.pcList}}, "");
        EXPECT_EQ(aConfig.GetNumBusyGpus(), rCase.iCount);
        CGpuConfig::GetInstance()->SelectDevices(aConfig, std::vector<int>(18, 1000));
        const CGpuConfig& rGpus = *CGpuConfig::GetInstance();
        EXPECT_EQ(
            std::vector<int>(rGpus.GetDeviceIDs(), rGpus.GetDeviceIDs() + rGpus.GetNumDevices()),
            rCase.viUsed);
        EXPECT_EQ(rGpus.GetAvailableMemory(), 500 * static_cast<int>(rCase.viUsed.size()));
        EXPECT_EQ(rGpus.GetDeviceID(rGpus.GetNumDevices()), -1);
        CGpuConfig::DeleteInstance();
    }
}

TEST_F(Config, PropertiesReadLines)
{
    std::ofstream("p") << "Flag = TRUE\nNo value\nA B=c d\te\n=x\n";
    const Util_Property aFile("p");
    EXPECT_EQ(aFile.GetNumEntries(), 5);
    EXPECT_TRUE(aFile.GetBooleanValue("FLAG"));
    EXPECT_EQ(aFile.GetStringValue("Novalue"), nullptr);
    EXPECT_STREQ(aFile.GetStringValue("ab"), "cd\te");
    EXPECT_EQ(aFile.GetStringValue(""), nullptr);
    EXPECT_EQ(Util_Property("missing").GetNumEntries(), 0);
    EXPECT_EQ(Util_Property(".").GetNumEntries(), 0);
}
}  // namespace
