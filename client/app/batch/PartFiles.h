#pragma once

#include <deque>
#include <string>
#include <vector>

#include "Report.h"
#include "batch/Manifest.h"
#include "talven/MrcReader.h"
#include "talven/ServerJob.h"

namespace talven
{

/// The parts of one volume, put together slice by slice.
class CPartFiles
{
public:
    /// \param rVolume  outlives this
    explicit CPartFiles(const BatchVolume& rVolume) : m_rVolume(rVolume) {}
    /// Opens the parts, which have their rows in order, and adds up what their attempts noted.
    [[nodiscard]] bool Open(const CBatchManifest& rManifest,
                            const std::vector<const BatchTask*>& apTasks);
    /// Gives all slices in order.
    [[nodiscard]] bool Read(CMonitor& rMonitor, const ImageSink& rSlices, std::string& rError);

    /// Of the whole volume.
    const JobSize& GetSize() const { return m_aSize; }
    /// After every iteration, of the whole: the sums of the parts are added.
    std::vector<double> GetRfactors() const;
    /// [iteration][view]: sum of |measured - reprojected|, sum of |measured|.
    const Json& GetSums() const { return m_aSums; }
    const std::string& GetError() const { return m_strError; }

private:
    struct Part
    {
        RowRange aRows;
        CMrcReader aFile{};
    };
    bool mOpenPart(const BatchTask& rTask);
    bool mAddSums(const Json& rSums);

    const BatchVolume& m_rVolume;
    JobSize m_aSize;
    std::deque<Part> m_aParts;
    Json m_aSums = Json::array();
    std::string m_strError;
};

/// Removes the temporary files that killed attempts left in a folder of parts.
void RemoveTemporary(const std::string& strFolder);
/// Removes parts, their results and their folder when it is empty then.
void RemoveParts(const std::vector<const BatchTask*>& apTasks);

}  // namespace talven
