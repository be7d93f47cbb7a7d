#pragma once

#include <string>
#include <vector>

#include "batch/Manifest.h"

namespace talven
{

/// What attempts at a task have left: beside its output a JSON file, written last, or a line about
/// a failure beside the manifest.
struct TaskState
{
    bool bDone = false;  ///< the output is there, and belongs to this manifest
    Json aResult;        ///< of the attempt that made it
    int iFailures = 0;
    std::string strLastError;

    const char* GetName() const { return bDone ? "done" : iFailures > 0 ? "failed" : "missing"; }
};

/// "part.mrc" -> "part.mrc.json".
std::string GetResultPath(const std::string& strOutput);
/// "job.json" -> "job.failures.jsonl".
std::string GetFailuresPath(const std::string& strManifest);

/// Whether the valid result of an output is there: rResult is what its JSON file says then.
/// \param iTask  that made it; -1: the parts of the volume were joined
bool FindResult(const CBatchManifest& rManifest, const std::string& strOutput, int iTask,
                Json& rResult);
/// Writes the JSON file. \param aResult  gets what FindResult() looks for
[[nodiscard]] bool WriteResult(const CBatchManifest& rManifest, const std::string& strOutput,
                               int iTask, Json aResult, std::string& rError);

/// Of all tasks. A part counts as done when its volume is joined.
std::vector<TaskState> ReadStates(const CBatchManifest& rManifest);
/// Appends a line; what cannot be written is not told: the error itself is.
void NoteFailure(const CBatchManifest& rManifest, int iTask, int iExit,
                 const std::string& strError);

std::string GetHostName();

}  // namespace talven
