#include "TaskFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "talven/AtomicFile.h"

namespace talven
{

std::string GetResultPath(const std::string& strOutput)
{
    return strOutput + ".json";
}

std::string GetFailuresPath(const std::string& strManifest)
{
    return std::filesystem::path(strManifest).replace_extension(".failures.jsonl");
}

bool FindResult(const CBatchManifest& rManifest, const std::string& strOutput, int iTask,
                Json& rResult)
{
    std::ifstream aFile(GetResultPath(strOutput));
    rResult = Json::parse(aFile, nullptr, false);
    std::error_code aError;
    return rResult.is_object() && rResult.value("manifest", Json()) == rManifest.GetHash() &&
           rResult.value("task", Json()) == iTask &&
           rResult.value("bytes", Json()) == std::filesystem::file_size(strOutput, aError);
}

bool WriteResult(const CBatchManifest& rManifest, const std::string& strOutput, int iTask,
                 Json aResult, std::string& rError)
{
    std::error_code aError;
    aResult["manifest"] = rManifest.GetHash();
    aResult["task"] = iTask;
    aResult["bytes"] = std::filesystem::file_size(strOutput, aError);
    return WriteTextFile(GetResultPath(strOutput), aResult.dump() + "\n", rError);
}

std::vector<TaskState> ReadStates(const CBatchManifest& rManifest)
{
    std::vector<TaskState> aStates(rManifest.aTasks.size());
    Json aJoined;
    for (std::size_t i = 0; i < aStates.size(); ++i)
    {
        const BatchTask& rTask = rManifest.aTasks[i];
        aStates[i].bDone =
            FindResult(rManifest, rTask.strOutput, static_cast<int>(i), aStates[i].aResult) ||
            (rManifest.IsPart(rTask) &&
             FindResult(rManifest, rManifest.GetVolume(rTask).strOutput, -1, aJoined));
    }
    std::ifstream aFailures(GetFailuresPath(rManifest.GetPath()));
    for (std::string strLine; std::getline(aFailures, strLine);)
    {
        const Json aLine = Json::parse(strLine, nullptr, false);
        if (!aLine.is_object() || aLine.value("manifest", Json()) != rManifest.GetHash()) continue;
        const Json aTask = aLine.value("task", Json()), aError = aLine.value("error", Json());
        if (!aTask.is_number_unsigned() || aTask >= aStates.size() || !aError.is_string()) continue;
        TaskState& rState = aStates[aTask.get<std::size_t>()];
        ++rState.iFailures;
        rState.strLastError = aError.get<std::string>();
    }
    return aStates;
}

void NoteFailure(const CBatchManifest& rManifest, int iTask, int iExit, const std::string& strError)
{
    const Json aLine = {{"manifest", rManifest.GetHash()}, {"task", iTask}, {"time", GetTimeNow()},
                        {"host", GetHostName()},           {"exit", iExit}, {"error", strError}};
    const std::string strLine = aLine.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
    const int iFile = open(GetFailuresPath(rManifest.GetPath()).c_str(),
                           O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (iFile == -1) return;
    [[maybe_unused]] const ssize_t iWritten = write(iFile, strLine.data(), strLine.size());
    close(iFile);
}

std::string GetHostName()
{
    char acHost[256] = "";
    return gethostname(acHost, sizeof(acHost) - 1) == 0 ? acHost : "";
}

}  // namespace talven
