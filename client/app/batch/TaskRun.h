#pragma once

#include <string>

#include "batch/Manifest.h"

namespace talven
{

/// One attempt at a task.
class CTaskRun
{
public:
    /// \param rServer  where it runs
    CTaskRun(const CBatchManifest& rManifest, int iTask, const ServerOptions& rServer,
             const ReportOptions& rReport)
        : m_rManifest(rManifest),
          m_rTask(rManifest.aTasks[static_cast<std::size_t>(iTask)]),
          m_iTask(iTask),
          m_rServer(rServer),
          m_rReport(rReport)
    {
    }
    /// Does nothing when the valid result is there. A failure is noted beside the manifest.
    [[nodiscard]] bool Run();
    /// Whether the result was there before.
    bool WasDone() const { return m_bWasDone; }
    const Json& GetResult() const { return m_aResult; }
    /// Whether another attempt may do.
    bool MayRetry() const { return m_bRetry; }
    const std::string& GetError() const { return m_strError; }

private:
    bool mFindResult();
    bool mCheckInputs();
    bool mMakePlace();
    bool mReconstruct();
    bool mWriteResult(const Json& rMade);

    const CBatchManifest& m_rManifest;
    const BatchTask& m_rTask;
    const int m_iTask;
    const ServerOptions& m_rServer;
    const ReportOptions& m_rReport;
    CStopwatch m_aWatch;
    bool m_bWasDone = false, m_bRetry = false;
    Json m_aResult;
    std::string m_strError;
};

}  // namespace talven
