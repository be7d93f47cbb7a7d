#include "Manifest.h"

#include <ctime>
#include <filesystem>
#include <iterator>

#include "talven/AtomicFile.h"

namespace talven
{
namespace
{

constexpr const char* g_pcFormat = "talven batch 1";

Json ToJson(const InputStamp& rStamp)
{
    return {{"file", rStamp.strPath},
            {"bytes", rStamp.ulBytes},
            {"time", rStamp.iTime},
            {"hash", rStamp.strHash}};
}

Json ToJson(const BatchVolume& rVolume)
{
    Json aJson = {{"output", rVolume.strOutput}, {"size", rVolume.aiSize},
                  {"pixel", rVolume.dPixel},     {"method", rVolume.strMethod},
                  {"options", rVolume.aOptions}, {"angles", rVolume.strAngles},
                  {"inputs", Json::array()}};
    for (const InputStamp& rStamp : rVolume.aInputs) aJson["inputs"].push_back(ToJson(rStamp));
    return aJson;
}

BatchVolume ToVolume(const Json& rJson)
{
    BatchVolume aVolume;
    rJson.at("output").get_to(aVolume.strOutput);
    rJson.at("size").get_to(aVolume.aiSize);
    rJson.at("pixel").get_to(aVolume.dPixel);
    rJson.at("method").get_to(aVolume.strMethod);
    rJson.at("angles").get_to(aVolume.strAngles);
    aVolume.aOptions = rJson.at("options");
    for (const Json& rStamp : rJson.at("inputs"))
        aVolume.aInputs.push_back(
            {rStamp.at("file").get<std::string>(), rStamp.at("bytes").get<std::uint64_t>(),
             rStamp.at("time").get<std::int64_t>(), rStamp.at("hash").get<std::string>()});
    return aVolume;
}

}  // namespace

bool CBatchManifest::Write(const std::string& strPath)
{
    m_strPath = strPath;
    if (std::filesystem::exists(strPath))
        return Fail(m_strError, strPath + " is there already, and a manifest never changes");
    Json aJson = {{"format", g_pcFormat},
                  {"version", TALVEN_VERSION},
                  {"planned", GetTimeNow()},
                  {"volumes", Json::array()},
                  {"tasks", Json::array()}};
    for (const BatchVolume& rVolume : aVolumes) aJson["volumes"].push_back(ToJson(rVolume));
    for (const BatchTask& rTask : aTasks)
        aJson["tasks"].push_back({{"volume", rTask.tVolume},
                                  {"rows", {rTask.aRows.iFirst, rTask.aRows.iEnd}},
                                  {"output", rTask.strOutput},
                                  {"cores", rTask.iCores},
                                  {"memory", rTask.ulMemory}});
    return WriteTextFile(strPath, aJson.dump(2) + "\n", m_strError);
}

bool CBatchManifest::Read(const std::string& strPath)
{
    m_strPath = strPath;
    std::ifstream aFile;
    if (!OpenText(strPath, aFile, m_strError)) return false;
    const std::string strText(std::istreambuf_iterator<char>(aFile), {});
    m_strHash = Hash(std::as_bytes(std::span(strText)));
    const Json aJson = Json::parse(strText, nullptr, false);
    if (!aJson.is_object() || aJson.value("format", Json()) != g_pcFormat)
        return Fail(m_strError, strPath + " is no manifest of talven batch plan");
    if (aJson.value("version", Json()) != TALVEN_VERSION)
        return Fail(m_strError, strPath + " was planned by another version of talven than this, " +
                                    TALVEN_VERSION);
    try
    {
        mTake(aJson);
    }
    catch (const Json::exception& rError)
    {
        return Fail(m_strError, strPath + ": " + Show(rError.what()));
    }
    return mIsComplete() || Fail(m_strError, strPath + ": its tasks do not make its volumes");
}

/// Whether the tasks of each volume have all its rows, in order.
bool CBatchManifest::mIsComplete() const
{
    std::vector<int> viRows(aVolumes.size());
    for (const BatchTask& rTask : aTasks)
    {
        int& rNext = viRows[rTask.tVolume];
        if (rTask.aRows.iFirst != rNext || rTask.aRows.iEnd <= rNext) return false;
        rNext = rTask.aRows.iEnd;
    }
    for (std::size_t i = 0; i < aVolumes.size(); ++i)
        if (viRows[i] != aVolumes[i].aiSize[1] || aVolumes[i].aiSize[0] <= 0 ||
            aVolumes[i].aiSize[2] <= 0)
            return false;
    return true;
}

void CBatchManifest::mTake(const Json& rJson)
{
    for (const Json& rVolume : rJson.at("volumes")) aVolumes.push_back(ToVolume(rVolume));
    for (const Json& rTask : rJson.at("tasks"))
    {
        const Json& rRows = rTask.at("rows");
        aTasks.push_back({rTask.at("volume").get<std::size_t>(),
                          {rRows.at(0).get<int>(), rRows.at(1).get<int>()},
                          rTask.at("output").get<std::string>(),
                          rTask.at("cores").get<int>(),
                          rTask.at("memory").get<std::uint64_t>()});
        rJson.at("volumes").at(aTasks.back().tVolume);  // throws where there is no such volume
    }
}

std::string CBatchManifest::Describe(const BatchTask& rTask) const
{
    const std::string& rOutput = GetVolume(rTask).strOutput;
    return IsPart(rTask)
               ? Format("rows %d:%d of %s", rTask.aRows.iFirst, rTask.aRows.iEnd, rOutput.c_str())
               : rOutput;
}

std::string GetTimeNow()
{
    const std::time_t tNow = std::time(nullptr);
    std::tm aNow{};
    gmtime_r(&tNow, &aNow);
    char acTime[32] = "";
    std::strftime(acTime, sizeof(acTime), "%Y-%m-%dT%H:%M:%SZ", &aNow);
    return acTime;
}

}  // namespace talven
