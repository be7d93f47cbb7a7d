#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "server/Config/ConfigFile.h"
#include "server/Config/GpuConfig.h"

namespace
{
using Variable = std::pair<std::string, std::string>;

/// The settings from these variables and this file, in a directory of their own.
CConfigFile Load(const std::vector<Variable>& rVariables, const std::string& strFile = "")
{
    const auto aFormer = std::filesystem::current_path();
    std::string strDirectory = testing::TempDir() + "talven-config-XXXXXX";
    std::filesystem::current_path(mkdtemp(strDirectory.data()));
    std::ofstream("config.gpu") << strFile;
    for (const auto& [strName, strValue] : rVariables) setenv(strName.c_str(), strValue.c_str(), 1);
    CConfigFile aConfig;
    aConfig.Load();
    for (const auto& [strName, strValue] : rVariables) unsetenv(strName.c_str());
    std::filesystem::current_path(aFormer);
    std::filesystem::remove_all(strDirectory);
    return aConfig;
}

TEST(Config, FileWinsOverTheEnvironment)
{
    const std::vector<Variable> aEnvironment = {
        {"TALVEN_PORT", "7000"}, {"TALVEN_MEMORY_PCT", "0.7"}, {"TALVEN_DEBUG_VOLUME", "a.mrc"}};
    const std::string strOwn = "talven-volume.mrc";
    for (const auto& [pcFile, iPort, fPercent, strVolume] :
         {std::tuple{"", 7000, 0.7f, std::string("a.mrc")},
          {"\n", 0, 0.2f, strOwn},  // one slot, no key: a file with entries
          {"ServerPort=8000\r\n\r\nMemoryPercentage = 50\r\n", 8000, 0.8f, strOwn},
          {"server port = 8000.9\nServerPort=1\nDebugVolume=b.mrc", 8000, 0.2f, "b.mrc"},
          {"ServerPort=1e300\nMemoryPercentage=nan", 2147483647, 0.2f, strOwn},
          {"# ServerPort=8000\nServerPort=80=90", 80, 0.2f, strOwn}})
    {
        const CConfigFile aConfig = Load(aEnvironment, pcFile);
        EXPECT_EQ(aConfig.GetServerPort(), iPort) << pcFile;
        EXPECT_EQ(aConfig.GetMemoryPercent(), fPercent) << pcFile;
        EXPECT_EQ(std::filesystem::path(aConfig.GetDebugVolume()).filename(), strVolume) << pcFile;
    }
    for (const auto& [pcPort, iPort] : {std::pair("7000 ", 20248), {"70x", 20248}, {" -3", -3}})
        EXPECT_EQ(Load({{"TALVEN_PORT", pcPort}}).GetServerPort(), iPort) << pcPort;
    for (const auto& [pcSeconds, fSeconds] : {std::pair("2.5", 2.5f), {"nan", 0}, {"1e99", 1e6f}})
        EXPECT_EQ(Load({{"TALVEN_IDLE_TIMEOUT", pcSeconds}}).GetIdleTimeout(), fSeconds);
    for (const auto& [pcVariable, pcFile, iCores] : {std::tuple("24", "", 24),
                                                     {"-1", "", 0},
                                                     {"x", "", 0},
                                                     {"1e3", "", 0},
                                                     {"5000", "", 1024},
                                                     {"24", "cores = 20", 20},
                                                     {"24", "ServerPort=1", 0}})
        EXPECT_EQ(Load({{"TALVEN_CORES", pcVariable}}, pcFile).GetCores(), iCores) << pcVariable;
}

TEST(Config, BusyListEndsAtTheFirstNumberOutOfRange)
{
    std::vector<int> viMemory(18, 1000);
    viMemory[5] = 0;  // cannot be used; the others keep their numbers
    CGpuConfig& rGpus = *CGpuConfig::GetInstance();
    for (const auto& [pcList, iCount, pcUsed] :
         {std::tuple("1, 3", 2, "0246789abcdef"),
          {"1,20,3", 1, "02346789abcdef"},
          {"x 0,0", 3, "12346789abcdef"},
          {"0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,0", 16, ""}})
    {
        const CConfigFile aConfig = Load({{"TALVEN_BUSY_GPUS", pcList}});
        EXPECT_EQ(aConfig.GetNumBusyGpus(), iCount);
        rGpus.SelectDevices(aConfig, viMemory);
        std::string strUsed;
        for (int i = 0; i < rGpus.GetNumDevices(); ++i)
            strUsed += "0123456789abcdefgh"[rGpus.GetDeviceID(i)];
        EXPECT_EQ(strUsed, pcUsed) << pcList;
        EXPECT_EQ(rGpus.GetAvailableMemory(), 500 * rGpus.GetNumDevices());
        EXPECT_EQ(rGpus.GetDeviceID(rGpus.GetNumDevices()), -1);
    }
    CGpuConfig::DeleteInstance();
}
}  // namespace
