#include "PartFiles.h"

#include <filesystem>
#include <regex>

#include "batch/TaskFiles.h"

namespace talven
{

bool CPartFiles::Open(const CBatchManifest& rManifest, const std::vector<const BatchTask*>& apTasks)
{
    m_aSize.iVolX = m_rVolume.aiSize[0];
    m_aSize.iProjY = m_rVolume.aiSize[1];
    m_aSize.iVolZ = m_rVolume.aiSize[2];
    for (const BatchTask* pTask : apTasks)
    {
        const int iTask = static_cast<int>(pTask - rManifest.aTasks.data());
        Json aResult;
        if (!FindResult(rManifest, pTask->strOutput, iTask, aResult))
            return Fail(m_strError, pTask->strOutput + " is gone");
        if (!mOpenPart(*pTask) || !mAddSums(aResult.value("rfactor_sums", Json::array())))
            return false;
    }
    return true;
}

bool CPartFiles::mOpenPart(const BatchTask& rTask)
{
    Part& rPart = m_aParts.emplace_back();
    rPart.aRows = rTask.aRows;
    if (!rPart.aFile.Open(rTask.strOutput)) return Fail(m_strError, rPart.aFile.GetError());
    const MrcHeader& rHeader = rPart.aFile.GetHeader();
    return (rHeader.iX == m_aSize.iVolX && rHeader.iY == rTask.aRows.GetCount() &&
            rHeader.iZ == m_aSize.iVolZ) ||
           Fail(m_strError, Format("%s is %d x %d x %d", rTask.strOutput.c_str(), rHeader.iX,
                                   rHeader.iY, rHeader.iZ));
}

bool CPartFiles::mAddSums(const Json& rSums)
{
    if (m_aParts.size() == 1) m_aSums = rSums;
    if (m_aParts.size() == 1) return true;
    try
    {
        for (std::size_t i = 0; i < m_aSums.size(); ++i)
            for (std::size_t j = 0; j < m_aSums[i].size(); ++j)
                for (const std::size_t k : {0, 1})
                    m_aSums[i][j][k] =
                        m_aSums[i][j].at(k).get<double>() + rSums.at(i).at(j).at(k).get<double>();
    }
    catch (const Json::exception&)
    {
        return Fail(m_strError, "the R-factor sums of the parts do not fit together");
    }
    return true;
}

std::vector<double> CPartFiles::GetRfactors() const
{
    std::vector<double> vdRfactors;
    for (const Json& rViews : m_aSums)
    {
        double dDifference = 0, dMeasured = 0;
        for (const Json& rSums : rViews)
        {
            dDifference += rSums[0].get<double>();
            dMeasured += rSums[1].get<double>();
        }
        vdRfactors.push_back(dDifference / dMeasured);
    }
    return vdRfactors;
}

bool CPartFiles::Read(CMonitor& rMonitor, const ImageSink& rSlices, std::string& rError)
{
    const std::size_t tX = static_cast<std::size_t>(m_aSize.iVolX);
    std::vector<float> vfSlice(tX * static_cast<std::size_t>(m_aSize.iProjY));
    const CPhase aPhase(rMonitor, "joining", m_aSize.iVolZ, vfSlice.size() * sizeof(float));
    for (int iZ = 0; iZ < m_aSize.iVolZ; ++iZ)
    {
        if (rMonitor.IsStopped()) return Fail(rError, "interrupted");
        for (Part& rPart : m_aParts)
            if (!rPart.aFile.ReadSection(iZ, rPart.aRows.Of(std::span(vfSlice), m_aSize.iVolX)))
                return Fail(rError, rPart.aFile.GetError());
        if (!rSlices(iZ, vfSlice, rError)) return false;
        rMonitor.Step(iZ + 1);
    }
    return true;
}

void RemoveTemporary(const std::string& strFolder)
{
    static const std::regex aPattern(R"(\d{5}-\d{5,}\.mrc(\.json)?\.[A-Za-z0-9]{6})");
    std::error_code aError;
    for (const auto& rEntry : std::filesystem::directory_iterator(strFolder, aError))
        if (std::regex_match(rEntry.path().filename().string(), aPattern))
            std::filesystem::remove(rEntry.path(), aError);
}

void RemoveParts(const std::vector<const BatchTask*>& apTasks)
{
    std::error_code aError;
    for (const BatchTask* pTask : apTasks)
    {
        std::filesystem::remove(pTask->strOutput, aError);
        std::filesystem::remove(GetResultPath(pTask->strOutput), aError);
    }
    if (!apTasks.empty())
        std::filesystem::remove(std::filesystem::path(apTasks[0]->strOutput).parent_path(), aError);
}

}  // namespace talven
